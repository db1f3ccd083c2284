#include "generic_defaults.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <fstream>

#include "model/registry.h"

std::string mkconfig_section_type(const char *name)
{
    std::string s = name;
    // Leading "<letters><digits>_": the channel, port or alarm prefix.
    size_t i = 0;
    while (i < s.size() && islower(static_cast<unsigned char>(s[i])))
        ++i;
    size_t letters = i;
    while (i < s.size() && isdigit(static_cast<unsigned char>(s[i])))
        ++i;
    if (letters > 0 && i > letters && i < s.size() - 1 && s[i] == '_')
        return s.substr(i + 1);
    // Trailing number, with its underscore when there is one.
    size_t end = s.size();
    while (end > 0 && isdigit(static_cast<unsigned char>(s[end - 1])))
        --end;
    if (end < s.size() && end > 0) {
        if (s[end - 1] == '_' && end > 1)
            --end;
        return s.substr(0, end);
    }
    return s;
}

// uci's export quoting: single quotes, an embedded quote closed and escaped.
static std::string quoted(const char *text)
{
    std::string out = "'";
    for (const char *p = text; *p; ++p) {
        if (*p == '\'')
            out += "'\\''";
        else
            out += *p;
    }
    return out + "'";
}

bool mkconfig_package_exists(const char *confdir, const char *package)
{
    struct stat st;
    std::string path = std::string(confdir) + "/" + package;
    return stat(path.c_str(), &st) == 0;
}

int mkconfig_write_package(const char *confdir, const char *package, const std::string &text)
{
    std::string path = std::string(confdir) + "/" + package;
    std::string tmp = path + ".mkconfig";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush()) {
            unlink(tmp.c_str());
            return -1;
        }
    }
    if (rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return -1;
    }
    return 0;
}

// One "config" block per named row, in table order, laid out as uci's own
// export writes it (a blank line before each block and one at the end), so a
// later commit of an untouched package rewrites the same bytes.
static std::string module_text(const ds_module *mod)
{
    std::string text;
    for (const ds_sec *s = mod->sections; s && s->name; ++s) {
        if (s->data_kind != DS_DATA_UCI)
            continue;
        text += "\nconfig " + mkconfig_section_type(s->name) + " " + quoted(s->name) + "\n";
    }
    return text.empty() ? text : text + "\n";
}

int mkconfig_write_generic(const char *confdir, const ds_model_root *root)
{
    if (!confdir || !root)
        return -1;
    for (uint32_t i = 0; i < root->count; ++i) {
        const ds_module *m = root->in_order[i];
        if (!m->package || mkconfig_package_exists(confdir, m->package))
            continue;
        if (mkconfig_write_package(confdir, m->package, module_text(m)) != 0) {
            fprintf(stderr, "mkconfig: cannot write %s/%s\n", confdir, m->package);
            return -1;
        }
    }
    return 0;
}
