// A fast reader for the JSON that clients actually send: objects, arrays,
// strings without escapes, integers, true, false and null. Anything else
// (escapes, fractions, comments, odd spacing, deep nesting, trailing text)
// is left to json-c, so every text parses exactly as json-c parses it.
// json-c's tokener walks a state machine per byte and was the largest
// single cost of a large request.
#pragma once

struct json_object;

// *out = the parsed value (new reference) and true when `text` is in the
// plain subset; false, with *out untouched, when json-c must parse it.
// Any thread.
bool jso_parse_plain(const char *text, json_object **out);
