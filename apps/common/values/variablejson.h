#pragma once

#include <string>

/// Appends a variable's JSON value, as the whole tree and the updates contain it:
///
///     int, float, string   {"max":"10","min":"0","type":"int","value":"3"}
///     buffer               the same with the type "string"
///     bool                 { "value": "true", "type": "bool", "textid": [ "false", "true" ]}
///     enumeration          { "value": "Left", "type": "MotorSide", "textid": [ "Left","Right"]}
///     structure            the object of its members
///
/// and an array of structures as those, comma-separated in brackets. `base` is the start of the variable's
/// memory, or of a copy of it; null for a memory that is not mapped, whose values read "n/a".
///
/// When printing a value throws, "ERROR": "<text of the exception>" takes its place. That makes the document
/// invalid JSON there, so that a client notices.
void appendVariable(std::string& out, unsigned int mem, unsigned int var, char* base);

/// One element's value, read from the mapped memory; an enumeration is always element 0. Unknown indexes are
/// reported as above: "Index exceeds limit".
std::string valueJson(unsigned int mem, unsigned int var, int index);
