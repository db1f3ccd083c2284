// Owning handles for the C objects the model code borrows from json-c and
// libuci, so every early return releases what was taken.
#pragma once

#include <json-c/json.h>
#include <uci.h>

#include <memory>

struct ds_jso_deleter {
    void operator()(json_object *o) const { json_object_put(o); }
};
struct ds_uci_deleter {
    void operator()(uci_context *c) const { uci_free_context(c); }
};

using jso_ptr = std::unique_ptr<json_object, ds_jso_deleter>;
using uci_ctx_ptr = std::unique_ptr<uci_context, ds_uci_deleter>;
