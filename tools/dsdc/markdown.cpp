// The generated references: docs/modules.md from the model description and
// docs/error-codes.md from the error-code table. Regenerated with
//   cmake --build build/native --target docs
// and compared with the committed files by the test "docs_current".
#include <cstdio>
#include <string>

#include "platform/error_codes.h"
#include "tools/dsdc/dsdc.h"

namespace {

const char *const kHeader =
    "<!-- Generated from dsd's own tables by `cmake --build build/native --target docs`. "
    "Do not edit. -->\n";

std::string text_of(json_object *o, const char *key)
{
    json_object *v = nullptr;
    if (!json_object_object_get_ex(o, key, &v) || !v)
        return "";
    return json_object_get_string(v);
}

json_object *member(json_object *o, const char *key)
{
    json_object *v = nullptr;
    return json_object_object_get_ex(o, key, &v) ? v : nullptr;
}

// Table cells must not hold a bare '|'.
std::string cell(const std::string &s)
{
    std::string out;
    for (char c : s) {
        if (c == '|')
            out += '\\';
        out += c;
    }
    return out;
}

// `text`, appended piece by piece: "`" + std::string makes GCC 12 report a
// false -Wrestrict overlap.
std::string code_span(const std::string &text)
{
    std::string out(1, '`');
    out.append(text).push_back('`');
    return out;
}

std::string joined(json_object *arr, const char *sep, bool code)
{
    std::string out;
    for (size_t i = 0; arr && i < json_object_array_length(arr); ++i) {
        std::string t = json_object_get_string(json_object_array_get_idx(arr, i));
        if (i)
            out += sep;
        out += code ? code_span(t) : t;
    }
    return out;
}

std::string argument_text(json_object *opt)
{
    json_object *v;
    if ((v = member(opt, "enum")))
        return joined(v, ", ", true);
    if ((v = member(opt, "range")))
        return joined(v, "..", false);
    if ((v = member(opt, "length")))
        return "length " + joined(v, "..", false);
    if ((v = member(opt, "plan")))
        return "at most " + text_of(v, "max_periods") + " periods" +
               (json_object_get_boolean(member(v, "typed")) ? ", typed" : "");
    return "";
}

void section_rows(json_object *secs, const char *kind)
{
    for (size_t i = 0; i < json_object_array_length(secs); ++i) {
        json_object *s = json_object_array_get_idx(secs, i);
        std::string name = code_span(cell(text_of(s, "name")));
        if (member(s, "count"))
            name += " ×" + text_of(s, "count");
        if (text_of(s, "data") == "dynamic")
            name += " (dynamic)";
        if (member(s, "max_sec"))
            name += " (at most " + text_of(s, "max_sec") + ")";
        json_object *opts = member(s, "options");
        if (json_object_array_length(opts) == 0)
            printf("| %s | %s | — | | | |\n", kind, name.c_str());
        for (size_t j = 0; j < json_object_array_length(opts); ++j) {
            json_object *o = json_object_array_get_idx(opts, j);
            std::string checker = text_of(o, "checker");
            printf("| %s | %s | `%s` | %s | %s | %s |\n", j ? "" : kind, j ? "" : name.c_str(),
                   cell(text_of(o, "name")).c_str(), checker.empty() ? "—" : checker.c_str(),
                   cell(argument_text(o)).c_str(), text_of(o, "code").c_str());
        }
    }
}

void module_section(json_object *m)
{
    std::string pkg = text_of(m, "package");
    printf("\n## %s\n\n", text_of(m, "name").c_str());
    printf("Package: %s. Channel flag: %s.", pkg.empty() ? "none" : code_span(pkg).c_str(),
           text_of(m, "ch").c_str());
    json_object *actions = member(m, "actions");
    if (json_object_array_length(actions) > 0)
        printf(" Actions (`do`): %s.", joined(actions, ", ", true).c_str());
    printf("\n");
    json_object *secs = member(m, "sections"), *types = member(m, "types");
    if (json_object_array_length(secs) + json_object_array_length(types) == 0)
        return;
    printf("\n| by | section | option | checker | argument | code |\n|---|---|---|---|---|---|\n");
    section_rows(secs, "name");
    section_rows(types, "type");
}

} // namespace

void dsdc_markdown_model(json_object *model)
{
    json_object *mods = member(model, "modules");
    printf("%s\n# Module reference\n\n", kHeader);
    printf("Every module dsd registers, as `dsdc schema` prints it from the daemon's own tables.\n"
           "A section is found by name (`get MODULE NAME`) or by uci type (`get --type TYPE`);\n"
           "per-channel rows appear once as a name pattern (`chn%%d_...`) with their count for a\n"
           "device of %s channels. Each option names its checker, the checker's argument and the\n"
           "error code a refused value gets (0: the checker's own code, see "
           "[error-codes.md](error-codes.md)).\n"
           "Options a section does not list are dropped by `set`.\n\n",
           text_of(model, "channels").c_str());
    printf("| module | package | channel flag | actions |\n|---|---|---|---|\n");
    for (size_t i = 0; i < json_object_array_length(mods); ++i) {
        json_object *m = json_object_array_get_idx(mods, i);
        printf("| [%s](#%s) | %s | %s | %zu |\n", text_of(m, "name").c_str(),
               text_of(m, "name").c_str(), text_of(m, "package").c_str(), text_of(m, "ch").c_str(),
               json_object_array_length(member(m, "actions")));
    }
    for (size_t i = 0; i < json_object_array_length(mods); ++i)
        module_section(json_object_array_get_idx(mods, i));
}

int dsdc_codes(bool markdown, bool pretty)
{
    if (!markdown) {
        dsdc_json list(json_object_new_array());
        for (const dsd_error_code *e = dsd_error_codes; e->meaning; ++e) {
            json_object *row = json_object_new_object();
            json_object_object_add(row, "code", json_object_new_int(e->code));
            if (e->last != e->code)
                json_object_object_add(row, "last", json_object_new_int(e->last));
            json_object_object_add(row, "meaning", json_object_new_string(e->meaning));
            json_object_array_add(list.get(), row);
        }
        dsdc_print(list.get(), pretty);
        return DSDC_OK;
    }
    printf("%s\n# Error codes\n\n", kHeader);
    printf("The \"error_code\" of every response; 0 is success. dsdc prints the meaning on\n"
           "standard error and exits with status 1 for any other code. A code not listed\n"
           "takes the meaning of the first range holding it.\n\n| code | meaning |\n|---|---|\n");
    for (const dsd_error_code *e = dsd_error_codes; e->meaning; ++e) {
        if (e->last == e->code)
            printf("| %d | %s |\n", e->code, cell(e->meaning).c_str());
        else
            printf("| %d .. %d | %s |\n", e->code, e->last, cell(e->meaning).c_str());
    }
    return DSDC_OK;
}
