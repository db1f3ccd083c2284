// dsdc's parts: request builders for the uci-like subcommands, the model
// description, and the output rules shared by all of them.
#pragma once

#include <json-c/json.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "client/dsd_client.h"
#include "platform/paths.h"

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

struct dsdc_options {
    dsd_identity who;
    std::string socket_path = dsd_path("/tmp/dsd_server.sock");
    int timeout_s = 120;
    bool pretty = isatty(STDOUT_FILENO) != 0;
    bool json = false; // stats, watch: raw JSON instead of text
};

// One exchange: DSDC_OK with *response (error_code 0), DSDC_ERROR_CODE
// (response kept when it parsed; the meaning printed on stderr) or
// DSDC_NO_RESPONSE.
int dsdc_call(const dsdc_options &o, const std::string &request, dsdc_json *response);

// True when the get's words name a module only (no section, no --type).
bool dsdc_whole_module(int argc, char **argv);
// `get MODULE`: every stored section of the module, printed as one get
// response. The exit status as for get.
int dsdc_get_module(const dsdc_options &o, const char *module);
// `stats`: the statistics keyword's answer as a table (JSON with o.json).
int dsdc_stats(const dsdc_options &o);
// `watch`: prints each configuration change event of the named modules
// (all when none) until SIGINT or SIGTERM; DSDC_OK then, DSDC_NO_RESPONSE
// when the bus cannot be reached at the start.
int dsdc_watch(const dsdc_options &o, int argc, char **argv);

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
