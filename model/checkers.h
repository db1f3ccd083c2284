// Option value checkers and the small validation helpers they share with
// module code. Every checker has the ds_checker_fn signature and is pure:
// it never changes the value or the context. Any thread.
#pragma once

#include "model/registry.h"

#include <cstddef>
#include <cstdint>

struct ds_int_range { int32_t min, max; };
struct ds_double_range { double min, max; };
struct ds_len_range { uint32_t min, max; };
// Enum lists are arrays of const char* ended by nullptr.

// Shared argument tables ({"on","off"} serves over a hundred rows).
extern const char *const ds_enum_on_off[];
extern const char *const ds_enum_0_1[];

int32_t check_enum_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_mixed_enum_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_int_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_double_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_string_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_ip_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_any_type(ds_context *, json_object *, json_object *, const void *, int32_t);
int32_t check_readonly_type(ds_context *, json_object *, json_object *, const void *, int32_t);

int str_to_int(const char *text, int32_t *out);
int str_to_double(const char *text, double *out);
int str_in_list(const char *text, const char *const *list);
int int_in_range(int32_t v, int32_t min, int32_t max);
int strlen_in_range(const char *text, uint32_t min, uint32_t max);
int is_valid_string(const char *text, size_t n);
int32_t ipv4_check_host(const char *text);
uint32_t ipv4_to_uint(const char *text);
json_object *jso_get_path3(json_object *obj, const char *a, const char *b, const char *c);
const char *jso_get_path3_string(json_object *obj, const char *a, const char *b, const char *c);
