#pragma once

#include "apps/common/introspection/catalogue.h"

#include <string>
#include <string_view>

/// The structure with this name, null if there is none.
const StructureDescriptor* findStructure(const char* name);

/// The structure's member with this name, null if there is none.
const MemberDescriptor* findMember(const StructureDescriptor& structure, std::string_view name);

/// Appends the member's JSON value, read at `field`, as getStructureIntrospection contains it. Throws the
/// JSON library's type_error when a text is not valid UTF-8.
void appendMember(std::string& out, const MemberDescriptor& member, const char* field);
