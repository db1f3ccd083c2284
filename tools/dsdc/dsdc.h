// dsdc's parts: request builders for the uci-like subcommands, the model
// description, and the output rules shared by all of them.
#pragma once

#include <json-c/json.h>

#include <memory>
#include <string>

struct dsdc_json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using dsdc_json = std::unique_ptr<json_object, dsdc_json_put>;

enum {
    DSDC_OK = 0,
    DSDC_ERROR_CODE = 1,  // dsd answered with a non-zero error_code
    DSDC_USAGE = 2,       // bad command line
    DSDC_NO_RESPONSE = 3, // no connection or no answer
};

// Builds the request of subcommand `cmd` ("get", "set", "add", "delete",
// "do") from its arguments argv[0..argc). Null with the reason in *error when
// the arguments do not fit; the caller owns the object.
dsdc_json dsdc_build_request(const std::string &cmd, int argc, char **argv, std::string *error);

// Prints the model of this build (all modules, or the one named) as JSON, or
// as the Markdown reference with markdown set. DSDC_OK or DSDC_USAGE for an
// unknown module. Registers the model in this process; call once.
int dsdc_schema(const char *module, bool markdown, bool pretty);

// Prints the model description of dsdc_schema as the Markdown reference
// (docs/modules.md).
void dsdc_markdown_model(json_object *model);

// Prints the table of error codes as JSON or Markdown. DSDC_OK.
int dsdc_codes(bool markdown, bool pretty);

// Prints obj on standard output: indented when pretty, else on one line.
void dsdc_print(json_object *obj, bool pretty);
