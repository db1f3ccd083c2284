// JSON helper library over json-c (the platform's `jso_*` interface).
//
// Ownership: functions returning json_object* give a new reference unless
// they say "borrowed"; release with jso_free_obj (json_object_put).
// All functions are reentrant and may be called from any thread.
#pragma once

#include <json-c/json.h>

#include <cstdint>
#include <string>

enum { JSO_URL_ENCODE = 0, JSO_URL_DECODE = 1 };

// Parses text; null on error or for a null text.
json_object *jso_from_string(const char *text);
// Serialises with json-c's default (spaced) form; the text is borrowed from obj.
const char *jso_to_string(json_object *obj);
json_object *jso_new_obj(void);
json_object *jso_new_array(void);
// A value that serialises as `len` bytes of ready JSON text, written as they
// are (not quoted): for responses assembled from stored texts. Its json-c
// type is string, so it must not be walked or re-coded (URL coding) before
// it is serialised. New object or null.
json_object *jso_new_raw(const char *text, size_t len);
void jso_free_obj(json_object *obj);

// Member lookup; borrowed result, null when absent or obj is not an object.
json_object *jso_obj_get(json_object *obj, const char *key);
// 0 and *out on success; -1 when absent or not an integer.
int jso_obj_get_int(json_object *obj, const char *key, int32_t *out);
// The member's string, borrowed; null when absent or not a string.
const char *jso_obj_get_string_origin(json_object *obj, const char *key);

bool jso_is_string(json_object *v);
bool jso_is_int(json_object *v);
bool jso_is_obj(json_object *v);
bool jso_is_array(json_object *v);
int32_t jso_get_int(json_object *v);
// Borrowed string of a string value; null otherwise.
const char *jso_get_string_origin(json_object *v);

// Adds (replacing) members; the value reference is taken over.
int jso_obj_add(json_object *obj, const char *key, json_object *val);
int jso_obj_add_int(json_object *obj, const char *key, int32_t v);
int jso_obj_add_string(json_object *obj, const char *key, const char *s);

// URL-codes every string value of obj in place, recursively through objects
// and arrays (keys are left alone). mode JSO_URL_ENCODE percent-encodes every
// byte outside the RFC 3986 unreserved set (A-Z a-z 0-9 - . _ ~); mode
// JSO_URL_DECODE turns %XX back into bytes and fails on a malformed escape.
// 0 on success, -1 on failure (obj may then be partly coded).
int jso_obj_url_coding(json_object *obj, int mode);

// Plain-text forms of the same rule; return false on a malformed escape.
bool jso_url_encode(const char *in, std::string *out);
bool jso_url_decode(const char *in, std::string *out);

// Turns every integer of obj, at any depth of objects and arrays, into its
// decimal string in place (values wider than 32 bits keep every digit).
// 0, or -1 when obj is not an object.
int jso_foreach_modify_int_to_string(json_object *obj);
