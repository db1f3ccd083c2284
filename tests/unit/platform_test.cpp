// Platform helpers: URL coding, the JSON accessors and the fast reader
// against json-c, secrets masked in traces, and the safe-file contract.
#include <fcntl.h>

#include <cerrno>

#include "harness/dsd_harness.h"
#include "platform/jso.h"
#include "platform/jso_parse.h"
#include "platform/safe_file.h"
#include "platform/trace_mask.h"

namespace {

struct JsoPut {
    void operator()(json_object *o) const { json_object_put(o); }
};
using Jso = std::unique_ptr<json_object, JsoPut>;

std::string encode(const char *s)
{
    std::string out;
    EXPECT_TRUE(jso_url_encode(s, &out));
    return out;
}

TEST(UrlCoding, EncodesAllButUnreservedDecodesStrictlyAndRoundTrips)
{
    EXPECT_EQ(encode("aZ09-._~"), "aZ09-._~");
    EXPECT_EQ(encode("a b+c/d?e=f&g"), "a%20b%2Bc%2Fd%3Fe%3Df%26g");
    EXPECT_EQ(encode("%"), "%25");
    EXPECT_EQ(encode("\xe4\xb8\xad"), "%E4%B8%AD");  // UTF-8 bytes one by one

    std::string out;
    EXPECT_TRUE(jso_url_decode("%e4%B8%ad+x", &out));
    EXPECT_EQ(out, "\xe4\xb8\xad+x");  // '+' is a literal plus, not a blank
    for (const char *bad : {"%", "%4", "%G0", "ab%z1", "%00"})
        EXPECT_FALSE(jso_url_decode(bad, &out)) << bad;
    std::string all;
    for (int c = 1; c < 256; c++)
        all.push_back(static_cast<char>(c));
    std::string enc, dec;
    ASSERT_TRUE(jso_url_encode(all.c_str(), &enc));
    ASSERT_TRUE(jso_url_decode(enc.c_str(), &dec));
    EXPECT_EQ(dec, all);
}

TEST(UrlCoding, ObjectCodingTouchesEveryStringValueButNoKey)
{
    Jso obj(jso_from_string(R"({"a b": "x y", "n": 5, "l": ["1/2", {"k": "é"}]})"));
    ASSERT_TRUE(obj);
    ASSERT_EQ(jso_obj_url_coding(obj.get(), JSO_URL_ENCODE), 0);
    EXPECT_STREQ(jso_obj_get_string_origin(obj.get(), "a b"), "x%20y");
    json_object *l = jso_obj_get(obj.get(), "l");
    EXPECT_STREQ(json_object_get_string(json_object_array_get_idx(l, 0)), "1%2F2");
    EXPECT_STREQ(jso_obj_get_string_origin(json_object_array_get_idx(l, 1), "k"), "%C3%A9");
    int32_t n = 0;
    EXPECT_EQ(jso_obj_get_int(obj.get(), "n", &n), 0);
    EXPECT_EQ(n, 5);
    ASSERT_EQ(jso_obj_url_coding(obj.get(), JSO_URL_DECODE), 0);
    EXPECT_STREQ(jso_obj_get_string_origin(obj.get(), "a b"), "x y");
    EXPECT_STREQ(jso_obj_get_string_origin(json_object_array_get_idx(l, 1), "k"), "é");
    Jso bad(jso_from_string(R"({"a": "ok", "b": "%zz"})"));
    ASSERT_TRUE(bad);
    EXPECT_EQ(jso_obj_url_coding(bad.get(), JSO_URL_DECODE), -1); // one bad value fails it all
    EXPECT_EQ(jso_obj_url_coding(nullptr, JSO_URL_DECODE), -1);
    EXPECT_EQ(jso_obj_url_coding(bad.get(), 7), -1);
}

TEST(Accessors, IntsBecomeDecimalStringsAtAnyDepthAndWidth)
{
    Jso obj(jso_from_string(R"({"a": -7, "b": "x", "c": [1, "2", 3], "w": 4294967297,)"
                            R"( "d": {"list": [{"id": 9, "n": [8]}], "e": 1.5}})"));
    ASSERT_TRUE(obj);
    ASSERT_EQ(jso_foreach_modify_int_to_string(obj.get()), 0);
    EXPECT_STREQ(json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN),
                 R"({"a":"-7","b":"x","c":["1","2","3"],"w":"4294967297",)"
                 R"("d":{"list":[{"id":"9","n":["8"]}],"e":1.5}})");
    EXPECT_EQ(jso_foreach_modify_int_to_string(jso_obj_get(obj.get(), "c")), -1);
}

// The fast reader must build exactly what json-c builds, or leave the text
// to json-c: compared through json-c's own serialiser.
std::string as_json_c(const char *text)
{
    Jso ref(json_tokener_parse(text));
    return ref ? json_object_to_json_string_ext(ref.get(), JSON_C_TO_STRING_PLAIN) : "<error>";
}

void expect_same_as_json_c(const char *text, bool fast_expected)
{
    json_object *fast = nullptr;
    bool handled = jso_parse_plain(text, &fast);
    Jso hold(fast);
    EXPECT_EQ(handled, fast_expected) << text;
    if (handled) {
        EXPECT_EQ(json_object_to_json_string_ext(fast, JSON_C_TO_STRING_PLAIN), as_json_c(text)) << text;
    }
    Jso via(jso_from_string(text));
    EXPECT_EQ(via ? json_object_to_json_string_ext(via.get(), JSON_C_TO_STRING_PLAIN) : "<error>",
              as_json_c(text)) << text;
}

TEST(FastParse, PlainTextsParseAsJsonCAndTheRestIsLeftToIt)
{
    for (const char *plain :
         {R"({"method":"get","image":{"name":["chn1_day","chn2_day"]}})", "{}", "[]", " [ 1 , -2 ] \n",
          R"({"a":1,"a":"x","b":{"a":true},"c":null,"d":false,"e":[null,[],{}]})",
          R"({"":"","k":"raw: é","big":-999999999999999999,"zero":0})"})
        expect_same_as_json_c(plain, true);
    for (const char *other :
         {R"({"a":"x\"y"})", R"({"a":"\u00e9"})", R"({"a":1.5})", R"({"a":1e3})", R"({"a":0123})", R"({"a":-0})",
          R"({"a":9999999999999999999})", R"({"a":1,})", "[1,]", R"({'a':1})", "{/*c*/}", "\v{}",
          R"({"a":NaN})", R"({"a":nul})", R"({"a":truex})", R"({"a":1} x)", "\"top\"", "5", "",
          R"({"a":"tab	in"})", R"({"a":[)"})
        expect_same_as_json_c(other, false);
    expect_same_as_json_c(std::string(40, '[').c_str(), false);  // deeper than json-c allows
}

}  // namespace

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
