// Arbitrary bytes as a config file and as a change log. Whatever parses must
// export to a text that parses back to the same export, except where a named
// section carries a generated-looking name ("cfg" and six hex digits): uci
// merges such a section into the anonymous one of its type that gets that
// name (another type is a parse error), and an anonymous name depends on the
// section's place, so the merge can differ between the original text and its
// export. Real uci does the same.
#include <uci.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "compat/uci/uci_internal.h"

namespace {

bool generated_shape(const char *name)
{
    if (strncmp(name, "cfg", 3) != 0 || strlen(name) != 9)
        return false;
    for (const char *c = name + 3; *c; c++) {
        if (!isxdigit(static_cast<unsigned char>(*c)))
            return false;
    }
    return true;
}

std::string round(uci_context *ctx, const char *name, std::string_view text, bool *ok, bool *ambiguous)
{
    uci_package *p = uci_pkg_new(ctx, name);
    *ok = p && uci_parse_config(p, text, nullptr) == UCI_OK;
    std::string out = *ok ? uci_export_text(p, false) : std::string();
    uci_element *e;
    if (*ok) {
        uci_foreach_element(&p->sections, e) {
            if (!uci_to_section(e)->anonymous && generated_shape(e->name))
                *ambiguous = true;
        }
    }
    uci_pkg_free(p);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string_view text(reinterpret_cast<const char *>(data), size);
    uci_context *ctx = uci_alloc_context();
    bool ok = false, ambiguous = false;
    std::string first = round(ctx, "fuzz", text, &ok, &ambiguous);
    if (ok && !ambiguous) {
        bool again = false;
        std::string second = round(ctx, "fuzz", first, &again, &ambiguous);
        if (!again || second != first)
            abort();
    }
    // The same bytes as a change log replayed onto an empty package.
    std::vector<uci_change> changes;
    uci_parse_changes(text, "fuzz", changes);
    uci_package *p = uci_pkg_new(ctx, "fuzz");
    for (const auto &c : changes) {
        uci_apply_change(p, c);
        (void)uci_format_change("fuzz", c);
    }
    (void)uci_export_text(p, true);
    uci_pkg_free(p);
    uci_free_context(ctx);
    return 0;
}
