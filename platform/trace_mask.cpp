#include "platform/trace_mask.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

const char kMask[] = "***";

const char *const kSecretKeys[] = {"key", "psk", "stok", "token", "ciphertext", "ciphertxt", nullptr};
const char *const kSecretParts[] = {"passw", "pwd", "secret", nullptr};

bool is_secret(std::string key)
{
    for (char &c : key)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (const char *const *k = kSecretKeys; *k; k++) {
        if (key == *k)
            return true;
    }
    for (const char *const *p = kSecretParts; *p; p++) {
        if (key.find(*p) != std::string::npos)
            return true;
    }
    return false;
}

// End (one past the closing quote) of the string literal opening at i, and
// its decoded text in *out (\uXXXX below 0x100 as one byte).
size_t string_end(std::string_view t, size_t i, std::string *out)
{
    char q = t[i];
    size_t j = i + 1;
    while (j < t.size() && t[j] != q) {
        if (t[j] == '\\' && j + 1 < t.size()) {
            char e = t[j + 1];
            if (e == 'u' && j + 5 < t.size()) {
                unsigned v = static_cast<unsigned>(strtoul(std::string(t.substr(j + 2, 4)).c_str(), nullptr, 16));
                if (v < 0x100)
                    out->push_back(static_cast<char>(v));
                j += 6;
                continue;
            }
            out->push_back(e);
            j += 2;
            continue;
        }
        out->push_back(t[j++]);
    }
    return j < t.size() ? j + 1 : t.size();
}

// End of the JSON value starting at i: a string, a nested object or array
// (strings inside respected), or a bare word.
size_t value_end(std::string_view t, size_t i)
{
    std::string ignored;
    if (i >= t.size())
        return i;
    if (t[i] == '"' || t[i] == '\'')
        return string_end(t, i, &ignored);
    if (t[i] == '{' || t[i] == '[') {
        int depth = 0;
        size_t j = i;
        while (j < t.size()) {
            char c = t[j];
            if (c == '"' || c == '\'') {
                j = string_end(t, j, &ignored);
                continue;
            }
            depth += (c == '{' || c == '[') ? 1 : (c == '}' || c == ']') ? -1 : 0;
            j++;
            if (depth == 0)
                break;
        }
        return j;
    }
    size_t j = i;
    while (j < t.size() && !strchr(",}] \t\r\n", t[j]))
        j++;
    return j;
}

// A quote opens a string where JSON expects one: after { [ , : or at start.
bool opens_string(std::string_view t, size_t i)
{
    if (t[i] == '"')
        return true;
    size_t k = i;
    while (k > 0 && isspace(static_cast<unsigned char>(t[k - 1])))
        k--;
    return k == 0 || strchr("{[,:", t[k - 1]);
}

std::string mask_members(std::string_view t);

// A string literal as written, unless its text is itself JSON holding a
// secret (a message carried as a string): then that text masked, re-quoted.
std::string literal(std::string_view raw, const std::string &decoded)
{
    if (decoded.find(':') == std::string::npos)
        return std::string(raw);
    std::string inner = mask_members(decoded);
    if (inner == decoded)
        return std::string(raw);
    std::string out = "\"";
    for (char c : inner) {
        if (c == '"' || c == '\\')
            out.push_back('\\');
        out.push_back(c);
    }
    return out + "\"";
}

// JSON members whose key names a secret get the value "***".
std::string mask_members(std::string_view t)
{
    std::string out;
    size_t i = 0;
    while (i < t.size()) {
        if ((t[i] != '"' && t[i] != '\'') || !opens_string(t, i)) {
            out.push_back(t[i++]);
            continue;
        }
        std::string key;
        size_t end = string_end(t, i, &key);
        out += literal(t.substr(i, end - i), key);
        size_t k = end;
        while (k < t.size() && isspace(static_cast<unsigned char>(t[k])))
            k++;
        if (k < t.size() && t[k] == ':' && is_secret(key)) {
            size_t v = k + 1;
            while (v < t.size() && isspace(static_cast<unsigned char>(t[v])))
                v++;
            out.append(t.substr(end, v - end));
            out += std::string("\"") + kMask + "\"";
            end = value_end(t, v);
        }
        i = end;
    }
    return out;
}

bool word_char(char c)
{
    return isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// name=value pairs whose name is a secret: the value up to a separator.
std::string mask_assignments(std::string_view t)
{
    std::string out;
    size_t i = 0;
    while (i < t.size()) {
        if (t[i] != '=' || i == 0 || !word_char(t[i - 1])) {
            out.push_back(t[i++]);
            continue;
        }
        size_t s = i;
        while (s > 0 && word_char(t[s - 1]))
            s--;
        out.push_back(t[i++]);
        if (!is_secret(std::string(t.substr(s, i - 1 - s))))
            continue;
        size_t e = i;
        while (e < t.size() && !strchr("&/\\\"' \t\r\n,;}", t[e]))
            e++;
        if (e > i)
            out += kMask;
        i = e;
    }
    return out;
}

bool at(std::string_view t, size_t i, const char *s)
{
    size_t n = strlen(s);
    if (i + n > t.size())
        return false;
    for (size_t k = 0; k < n; k++) {
        if (tolower(static_cast<unsigned char>(t[i + k])) != tolower(static_cast<unsigned char>(s[k])))
            return false;
    }
    return true;
}

// Length of a scheme separator at i ("://", ":\/\/", "%3A%2F%2F"), else 0.
size_t scheme_sep(std::string_view t, size_t i)
{
    for (const char *s : {"://", ":\\/\\/", "%3a%2f%2f"}) {
        if (at(t, i, s))
            return strlen(s);
    }
    return 0;
}

// user:password@ after a scheme separator: the password becomes "***".
std::string mask_userinfo(std::string_view t)
{
    std::string out;
    size_t i = 0;
    while (i < t.size()) {
        size_t sep = scheme_sep(t, i);
        if (!sep) {
            out.push_back(t[i++]);
            continue;
        }
        out.append(t.substr(i, sep));
        i += sep;
        size_t colon = std::string::npos, e = i;
        while (e < t.size() && !strchr("/\\\"' \t\r\n?#@", t[e]) && !at(t, e, "%40") && !at(t, e, "%2f")) {
            if (colon == std::string::npos && (t[e] == ':' || at(t, e, "%3a")))
                colon = e;
            e++;
        }
        bool at_sign = e < t.size() && (t[e] == '@' || at(t, e, "%40"));
        if (!at_sign || colon == std::string::npos)
            continue;
        out.append(t.substr(i, colon - i));
        out += t[colon] == ':' ? ":" : std::string(t.substr(colon, 3));
        out += kMask;
        i = e;
    }
    return out;
}

} // namespace

std::string trace_mask(std::string_view text)
{
    return mask_userinfo(mask_assignments(mask_members(text)));
}
