// Requests of the uci-like subcommands: each turns its words into the JSON
// request that the raw form would carry, so both forms reach the same code in
// the daemon.
#include <cstring>
#include <vector>

#include "tools/dsdc/dsdc.h"

namespace {

// Words of a get or delete: section names, and types after "--type".
struct section_words {
    std::vector<std::string> names, types;
};

bool split_sections(int argc, char **argv, section_words *out, std::string *error)
{
    for (int i = 0; i < argc; ++i) {
        const char *w = argv[i];
        if (strcmp(w, "--type") == 0) {
            if (i + 1 >= argc) {
                *error = "--type needs a section type";
                return false;
            }
            out->types.push_back(argv[++i]);
        } else if (strncmp(w, "--type=", 7) == 0) {
            out->types.push_back(w + 7);
        } else {
            out->names.push_back(w);
        }
    }
    return true;
}

// One string as itself, several as an array of strings.
json_object *strings_value(const std::vector<std::string> &list)
{
    if (list.size() == 1)
        return json_object_new_string(list[0].c_str());
    json_object *arr = json_object_new_array();
    for (const std::string &s : list)
        json_object_array_add(arr, json_object_new_string(s.c_str()));
    return arr;
}

// {"method": method, module: body}; takes body.
dsdc_json wrap(const char *method, const char *module, json_object *body)
{
    dsdc_json req(json_object_new_object());
    json_object_object_add(req.get(), "method", json_object_new_string(method));
    json_object_object_add(req.get(), module, body);
    return req;
}

// get and delete: MODULE, then section names, with "--type TYPE" anywhere.
dsdc_json build_sections(const char *method, int argc, char **argv, std::string *error)
{
    section_words w;
    if (!split_sections(argc, argv, &w, error))
        return nullptr;
    if (w.names.empty()) {
        *error = std::string(method) + " needs MODULE";
        return nullptr;
    }
    std::string module = w.names.front();
    w.names.erase(w.names.begin());
    if (w.names.empty() && w.types.empty()) {
        *error = "name at least one section (or --type TYPE)";
        return nullptr;
    }
    json_object *body = json_object_new_object();
    if (!w.names.empty())
        json_object_object_add(body, "name", strings_value(w.names));
    if (!w.types.empty())
        json_object_object_add(body, "table", strings_value(w.types));
    return wrap(method, module.c_str(), body);
}

// The child object called key of parent, made when absent (borrowed).
json_object *child(json_object *parent, const std::string &key)
{
    json_object *c = nullptr;
    if (!json_object_object_get_ex(parent, key.c_str(), &c)) {
        c = json_object_new_object();
        json_object_object_add(parent, key.c_str(), c);
    }
    return c;
}

// "NAME=VALUE" into name and value; false without '=' or with an empty name.
bool split_assignment(const char *word, std::string *name, std::string *value)
{
    const char *eq = strchr(word, '=');
    if (!eq || eq == word)
        return false;
    name->assign(word, eq);
    value->assign(eq + 1);
    return true;
}

dsdc_json build_set(int argc, char **argv, std::string *error)
{
    if (argc < 1) {
        *error = "set needs MODULE.SECTION.OPTION=VALUE";
        return nullptr;
    }
    dsdc_json req(json_object_new_object());
    json_object_object_add(req.get(), "method", json_object_new_string("set"));
    for (int i = 0; i < argc; ++i) {
        std::string path, value;
        size_t d1, d2;
        if (!split_assignment(argv[i], &path, &value) ||
            (d1 = path.find('.')) == std::string::npos ||
            (d2 = path.find('.', d1 + 1)) == std::string::npos || d1 == 0 || d2 == d1 + 1 ||
            d2 + 1 == path.size()) {
            *error = std::string("not MODULE.SECTION.OPTION=VALUE: ") + argv[i];
            return nullptr;
        }
        json_object *sec = child(child(req.get(), path.substr(0, d1)), path.substr(d1 + 1, d2 - d1 - 1));
        json_object_object_add(sec, path.substr(d2 + 1).c_str(), json_object_new_string(value.c_str()));
    }
    return req;
}

dsdc_json build_add(int argc, char **argv, std::string *error)
{
    if (argc < 3) {
        *error = "add needs MODULE TYPE NAME [OPTION=VALUE...]";
        return nullptr;
    }
    json_object *para = json_object_new_object();
    dsdc_json hold(para);
    for (int i = 3; i < argc; ++i) {
        std::string name, value;
        if (!split_assignment(argv[i], &name, &value)) {
            *error = std::string("not OPTION=VALUE: ") + argv[i];
            return nullptr;
        }
        json_object_object_add(para, name.c_str(), json_object_new_string(value.c_str()));
    }
    json_object *body = json_object_new_object();
    json_object_object_add(body, "table", json_object_new_string(argv[1]));
    json_object_object_add(body, "name", json_object_new_string(argv[2]));
    json_object_object_add(body, "para", hold.release());
    return wrap("add", argv[0], body);
}

dsdc_json build_do(int argc, char **argv, std::string *error)
{
    if (argc < 2 || argc > 3) {
        *error = "do needs MODULE KEYWORD [JSON]";
        return nullptr;
    }
    json_object *arg = argc == 3 ? json_tokener_parse(argv[2]) : json_object_new_object();
    if (!arg) {
        *error = std::string("the argument is not JSON: ") + argv[2];
        return nullptr;
    }
    json_object *body = json_object_new_object();
    json_object_object_add(body, argv[1], arg);
    return wrap("do", argv[0], body);
}

} // namespace

dsdc_json dsdc_build_request(const std::string &cmd, int argc, char **argv, std::string *error)
{
    if (cmd == "get" || cmd == "delete")
        return build_sections(cmd.c_str(), argc, argv, error);
    if (cmd == "set")
        return build_set(argc, argv, error);
    if (cmd == "add")
        return build_add(argc, argv, error);
    if (cmd == "do")
        return build_do(argc, argv, error);
    *error = "unknown command " + cmd;
    return nullptr;
}
