// A private scratch directory under $TMPDIR (or /tmp), made with mkdtemp and
// removed with everything in it when the owner goes out of scope. Tests name
// their files inside it, never fixed names in /tmp that two runs would share.
// Header-only so unit tests can use it without the end-to-end harness.
#pragma once

#include <cstdlib>
#include <stdexcept>
#include <string>

struct scratch_dir {
    std::string path;

    explicit scratch_dir(const std::string &tag = "dsd-test")
    {
        const char *tmp = getenv("TMPDIR");
        std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + tag + "-XXXXXX";
        if (!mkdtemp(tmpl.data()))
            throw std::runtime_error("mkdtemp " + tmpl);
        path = tmpl;
    }
    ~scratch_dir()
    {
        if (!getenv("DSD_KEEP_ROOT"))
            (void)!system(("rm -rf '" + path + "'").c_str());
    }
    scratch_dir(const scratch_dir &) = delete;
    scratch_dir &operator=(const scratch_dir &) = delete;

    // path + "/" + rel
    std::string operator/(const std::string &rel) const { return path + "/" + rel; }
};
