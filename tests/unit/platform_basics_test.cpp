#include "../e2e/harness/scratch_dir.h"
#include "platform/safe_file.h"
#include "platform/trace_mask.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

// Secrets in every form a request, a bus message or a camera URL can take
// them; nothing else changes.
TEST(TraceMask, SecretsInEveryShape)
{
    struct row {
        const char *in, *out;
    } rows[] = {
        {R"({"username":"admin","passwd":"pw1"})", R"({"username":"admin","passwd":"***"})"},
        {R"({"a":{"old_password": 123, "New_Password":["x"]}})", R"({"a":{"old_password": "***", "New_Password":"***"}})"},
        {R"({"pass\u0077ord":"pw2","key":{"k":"v"},"keyword":"stays"})", R"({"pass\u0077ord":"***","key":"***","keyword":"stays"})"},
        {R"({'pwd':'pw3'})", R"({'pwd':"***"})"},
        {R"({"url":"rtsp:\/\/cam:pw4@10.0.0.9:554\/live"})", R"({"url":"rtsp:\/\/cam:***@10.0.0.9:554\/live"})"},
        {"rtsp%3A%2F%2Fcam%3Apw5%4010.0.0.9", "rtsp%3A%2F%2Fcam%3A***%4010.0.0.9"},
        {"url : http://10.0.0.2:80/stok=abc123/ds/up", "url : http://10.0.0.2:80/stok=***/ds/up"},
        {"http://10.0.0.2:80/ds, it's {\"n\": 1}", "http://10.0.0.2:80/ds, it's {\"n\": 1}"},
        {R"({"content":"{\"passwd\":\"pw6\"}"})", R"({"content":"{\"passwd\":\"***\"}"})"},
    };
    for (const row &r : rows)
        EXPECT_EQ(trace_mask(r.in), r.out) << r.in;
}

// The safe-file contract against the links a local user can plant.
TEST(SafeFile, PlantedLinksAreNeverFollowed)
{
    scratch_dir scratch("dsd-safe");
    std::string base = scratch.path, out = base + "/outside", in = base + "/in";
    ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
    ASSERT_EQ(mkdir(in.c_str(), 0755), 0);
    std::ofstream(out + "/keep") << "keep\n";
    ASSERT_EQ(symlink(out.c_str(), (in + "/dirlink").c_str()), 0);
    ASSERT_EQ(link((out + "/keep").c_str(), (in + "/hard").c_str()), 0);
    sf_fd dir(sf_open_dir(in.c_str()));
    ASSERT_TRUE(dir.ok());
    // A hard link at the name is replaced by a new file of the given mode.
    {
        sf_fd f(sf_create_at(dir.fd, "hard", 0600));
        ASSERT_TRUE(f.ok());
        ASSERT_EQ(sf_write_all(f.fd, "mine"), 0);
    }
    struct stat st;
    ASSERT_EQ(stat((in + "/hard").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(sf_open_read_at(dir.fd, "dirlink"), -ELOOP);
    EXPECT_LT(sf_open_dir_below(dir.fd, "dirlink"), 0);
    std::string rel;
    EXPECT_EQ(sf_resolve_inside(in + "/dirlink/keep", in, &rel), -EXDEV);
    EXPECT_EQ(sf_resolve_inside(in + "/new", in, &rel), 0);
    EXPECT_EQ(rel, "new");
    {
        sf_work_file guard(dir.fd, "dirlink");
    }
    EXPECT_NE(lstat((in + "/dirlink").c_str(), &st), 0);
    EXPECT_EQ(sf_empty_dir(dir.fd), 0);
    std::ifstream keep(out + "/keep");
    std::string line;
    EXPECT_TRUE(std::getline(keep, line) && line == "keep");
    ASSERT_EQ(sf_remove_at(AT_FDCWD, base.c_str()), 0);
}
