#pragma once

#include <string>

/// A variable's JSON value, as the whole tree and the updates show it:
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
/// What goes wrong while a value is printed stands in its place: "ERROR": "<text of the exception>". That
/// makes the document invalid there, which is how a client can tell.
void appendVariable(std::string& out, unsigned int mem, unsigned int var, char* base);

/// One element of it.
void appendValue(std::string& out, unsigned int mem, unsigned int var, char* base, int index);
