// uci's text formats: the config file (package/config/option/list with
// shell-like quoting) and the save file's change records.
#include "uci_internal.h"

#include <cctype>
#include <cstring>

namespace {

struct cursor {
    const char *p;
    const char *end;
    int line;
};

bool at_blank(const cursor &c)
{
    return c.p < c.end && *c.p != '\n' && isspace(static_cast<unsigned char>(*c.p));
}

void skip_blanks(cursor &c)
{
    while (at_blank(c))
        c.p++;
}

void skip_to_eol(cursor &c)
{
    while (c.p < c.end && *c.p != '\n')
        c.p++;
}

// A backslash at the end of a line joins the next line to this one.
bool skip_continuation(cursor &c)
{
    const char *q = c.p + 1;
    if (q < c.end && *q == '\r' && q + 1 < c.end && q[1] == '\n')
        q++;
    if (q >= c.end || *q != '\n')
        return q >= c.end ? (c.p = c.end, true) : false;
    c.p = q + 1;
    c.line++;
    return true;
}

bool take_single(cursor &c, std::string &out)
{
    for (c.p++; c.p < c.end && *c.p != '\''; c.p++) {
        c.line += *c.p == '\n';
        out += *c.p;
    }
    if (c.p >= c.end)
        return false;
    c.p++;
    return true;
}

bool take_double(cursor &c, std::string &out)
{
    for (c.p++; c.p < c.end && *c.p != '"';) {
        if (*c.p == '\\') {
            if (skip_continuation(c))
                continue;
            c.p++; // the escaped character stands for itself
        }
        c.line += *c.p == '\n';
        out += *c.p++;
    }
    if (c.p >= c.end)
        return false;
    c.p++;
    return true;
}

enum arg_result { ARG_OK, ARG_BAD };

// One argument: quoted and unquoted pieces up to whitespace, as uci reads
// them. '#' cuts the rest of the line; ';' is left for the caller, except
// right after an unquoted piece, where uci's reader loses the rest of the
// line (so "option x 2; option y 3" drops y).
arg_result take_arg(cursor &c, std::string &out)
{
    bool unquoted_tail = false;
    do {
        switch (*c.p) {
        case '\'':
            unquoted_tail = false;
            if (!take_single(c, out))
                return ARG_BAD;
            break;
        case '"':
            unquoted_tail = false;
            if (!take_double(c, out))
                return ARG_BAD;
            break;
        case '#':
            skip_to_eol(c);
            return ARG_OK;
        case ';':
            if (unquoted_tail)
                skip_to_eol(c);
            return ARG_OK;
        case '\\':
            if (skip_continuation(c))
                break;
            c.p++;
            [[fallthrough]];
        default:
            unquoted_tail = true;
            out += *c.p++;
            break;
        }
    } while (c.p < c.end && !isspace(static_cast<unsigned char>(*c.p)));
    return ARG_OK;
}

// The words of one command. Only the first four mean anything (keyword,
// name, value, and the one the parser checks for extra arguments); the
// strings are reused from command to command so parsing allocates little.
struct command {
    std::string word[4];
    std::string extra;
    size_t count = 0;

    std::string &next() { return count < 4 ? word[count] : extra; }
};

// Reads the words of one command; false on an unterminated quote.
bool take_command(cursor &c, command &cmd)
{
    cmd.count = 0;
    for (;;) {
        skip_blanks(c);
        if (c.p >= c.end || *c.p == '\n')
            return true;
        if (*c.p == '#') {
            skip_to_eol(c);
            return true;
        }
        if (*c.p == ';') {
            c.p++;
            return true;
        }
        std::string &word = cmd.next();
        word.clear();
        if (take_arg(c, word) != ARG_OK)
            return false;
        cmd.count++;
    }
}

bool is_keyword(const std::string &w, const char *full)
{
    return w == full || (w.size() == 1 && w[0] == full[0]);
}

struct parse_state {
    uci_package *p;
    uci_section *section;
};

void close_section(parse_state &st)
{
    if (st.section && st.section->anonymous)
        uci_sec_name_anonymous(st.section);
}

bool do_config(parse_state &st, const command &cmd)
{
    const std::string *w = cmd.word;
    if (cmd.count < 2 || !uci_type_valid(w[1].c_str()))
        return false;
    close_section(st);
    const char *name = cmd.count > 2 && !w[2].empty() ? w[2].c_str() : nullptr;
    if (name && !uci_name_valid(name, false))
        return false;
    uci_section *s = name ? uci_sec_find(st.p, name) : nullptr;
    if (s && strcmp(s->type, w[1].c_str()) != 0)
        return false; // "section of different type overwrites prior section with same name"
    if (s) {
        uci_change c{.cmd = CMD_CHANGE, .section = name, .option = "", .value = w[1], .has_value = true};
        if (uci_apply_change(st.p, c) != UCI_OK)
            return false;
    } else {
        s = uci_sec_new(st.p, w[1].c_str(), name);
    }
    st.section = s;
    return s != nullptr;
}

bool do_option(parse_state &st, const command &cmd, bool list)
{
    const std::string *w = cmd.word;
    if (!st.section || cmd.count < 2 || !uci_name_valid(w[1].c_str(), false))
        return false;
    const char *value = cmd.count > 2 ? w[2].c_str() : "";
    if (list)
        return uci_opt_add_list(st.section, w[1].c_str(), value) != nullptr;
    if (!*value) {
        if (uci_option *o = uci_opt_find(st.section, w[1].c_str()))
            uci_opt_free(o);
        return true;
    }
    return uci_opt_set(st.section, w[1].c_str(), value) != nullptr;
}

bool do_command(parse_state &st, const command &cmd)
{
    const std::string *w = cmd.word;
    if (is_keyword(w[0], "package"))
        return cmd.count >= 2 && uci_name_valid(w[1].c_str(), true); // one file, one package
    if (is_keyword(w[0], "config"))
        return do_config(st, cmd);
    if (is_keyword(w[0], "option"))
        return do_option(st, cmd, false);
    if (is_keyword(w[0], "list"))
        return do_option(st, cmd, true);
    return false;
}

void append_quoted(std::string &out, const char *s)
{
    out += '\'';
    for (; *s; s++) {
        if (*s == '\'')
            out += "'\\''";
        else
            out += *s;
    }
    out += '\'';
}

// Types are written bare, as uci does; one holding a character the parser
// would read differently ('#', ';', quotes, '\\') is quoted so it reads back.
void append_type(std::string &out, const char *type)
{
    if (strpbrk(type, "#;'\"\\"))
        append_quoted(out, type);
    else
        out += type;
}

// Save-file prefix of each command, indexed by uci_command_host.
const char change_prefix[] = {'+', '-', 0, '@', '^', '|', '~'};
static_assert(sizeof change_prefix == CMD_LIST_DEL + 1, "one prefix per command");

int command_of(char c)
{
    for (int i = 0; i < static_cast<int>(sizeof change_prefix); i++) {
        if (change_prefix[i] && change_prefix[i] == c)
            return i;
    }
    return CMD_CHANGE;
}

} // namespace

int uci_parse_config(uci_package *p, std::string_view text, int *err_line)
{
    cursor c{text.data(), text.data() + text.size(), 1};
    parse_state st{p, nullptr};
    command cmd;
    while (c.p < c.end) {
        skip_blanks(c);
        if (c.p < c.end && *c.p == '\n') {
            c.p++;
            c.line++;
            continue;
        }
        int line = c.line;
        bool ok = take_command(c, cmd);
        if (ok && cmd.count > 0)
            ok = do_command(st, cmd);
        if (!ok) {
            if (err_line)
                *err_line = line;
            return UCI_ERR_PARSE;
        }
    }
    close_section(st);
    return UCI_OK;
}

void uci_parse_changes(std::string_view text, const char *name, std::vector<uci_change> &out)
{
    cursor c{text.data(), text.data() + text.size(), 1};
    while (c.p < c.end) {
        skip_blanks(c);
        std::string arg;
        if (c.p < c.end && *c.p != '\n' && take_arg(c, arg) != ARG_OK)
            return; // a torn last record: the ones before it stand
        skip_to_eol(c);
        if (c.p < c.end)
            c.p++;
        if (arg.empty())
            continue;
        uci_change ch{.cmd = command_of(arg[0]), .section = "", .option = "", .value = "", .has_value = false};
        std::string tuple = arg.substr(ch.cmd == CMD_CHANGE ? 0 : 1);
        size_t eq = tuple.find('=');
        if (eq != std::string::npos) {
            ch.value = tuple.substr(eq + 1);
            ch.has_value = true;
            tuple.resize(eq);
        }
        size_t d1 = tuple.find('.');
        if (d1 == std::string::npos || tuple.compare(0, d1, name) != 0 || strlen(name) != d1)
            continue;
        size_t d2 = tuple.find('.', d1 + 1);
        ch.section = tuple.substr(d1 + 1, d2 == std::string::npos ? std::string::npos : d2 - d1 - 1);
        if (d2 != std::string::npos)
            ch.option = tuple.substr(d2 + 1);
        out.push_back(std::move(ch));
    }
}

std::string uci_format_change(const char *pkg, const uci_change &c)
{
    std::string line;
    if (change_prefix[c.cmd])
        line += change_prefix[c.cmd];
    line += pkg;
    line += '.';
    line += c.section;
    if (!c.option.empty()) {
        line += '.';
        line += c.option;
    }
    if (c.cmd != CMD_REMOVE || c.has_value) {
        line += '=';
        append_quoted(line, c.value.c_str());
    }
    line += '\n';
    return line;
}

// uci's canonical form: a blank line before each section, a tab before
// each option, every value single-quoted.
std::string uci_export_text(uci_package *p, bool header)
{
    std::string out;
    if (header)
        out += std::string("package ") + p->e.name + "\n";
    uci_element *se, *oe, *ie;
    uci_foreach_element(&p->sections, se) {
        uci_section *s = uci_to_section(se);
        out += "\nconfig ";
        append_type(out, s->type);
        if (!s->anonymous) {
            out += ' ';
            append_quoted(out, s->e.name);
        }
        out += '\n';
        uci_foreach_element(&s->options, oe) {
            uci_option *o = uci_to_option(oe);
            if (o->type == UCI_TYPE_STRING) {
                out += std::string("\toption ") + oe->name + ' ';
                append_quoted(out, o->v.string);
                out += '\n';
                continue;
            }
            uci_foreach_element(&o->v.list, ie) {
                out += std::string("\tlist ") + oe->name + ' ';
                append_quoted(out, ie->name);
                out += '\n';
            }
        }
    }
    out += '\n';
    return out;
}
