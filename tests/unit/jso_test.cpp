#include "platform/jso.h"
#include "platform/jso_parse.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

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
