// String: UTF-8 handling, text operations, equality and member keys.
#include <gtest/gtest.h>
#include "host_test_support.h"

using namespace tesk;

namespace {

std::vector<std::string> texts(std::vector<String> const& pieces) {
    std::vector<std::string> out;
    for (auto const& p : pieces) out.push_back(p.toUtf8());
    return out;
}

TEST(StringUtf8, WellFormedTextRoundTripsUnchanged) {
    static constexpr char bytes[] = "plain, \xC3\xA9t\xC3\xA9, \xE2\x82\xAC, \xF0\x9F\x98\x80, nul\0inside";
    std::string text(bytes, sizeof bytes - 1);
    String s = String::fromUtf8(text);
    EXPECT_EQ(s.toUtf8(), text);
    EXPECT_EQ(s.asChars(), std::string_view(text));
    EXPECT_EQ(s.size(), text.size());
    EXPECT_TRUE(s.isValidUtf8());
    EXPECT_EQ(s.c_str()[s.size()], '\0');
}

TEST(StringUtf8, EachIllFormedSequenceBecomesOneReplacementCharacter) {
    const std::string fffd = "\xEF\xBF\xBD";
    struct Case {
        std::string in, out;
    } cases[] = {
        {"a\x80z", "a" + fffd + "z"},                      // stray continuation byte
        {"a\xC0\xAFz", "a" + fffd + fffd + "z"},           // overlong: C0 is never a lead
        {"a\xE0\x80\xAFz", "a" + fffd + fffd + fffd + "z"}, // overlong three-byte form
        {"a\xED\xA0\x80z", "a" + fffd + fffd + fffd + "z"}, // UTF-16 surrogate
        {"a\xF4\x90\x80\x80z", "a" + fffd + fffd + fffd + fffd + "z"}, // above U+10FFFF
        {"a\xE2\x82z", "a" + fffd + "z"},                  // truncated: one replacement for the prefix
        {"a\xF0\x9F\x98", "a" + fffd},                     // truncated at the end
        {"\xFF\xFE", fffd + fffd},
    };
    for (auto const& c : cases) {
        String s = String::fromUtf8(c.in);
        EXPECT_EQ(s.toUtf8(), c.out) << "input bytes: " << c.in;
        EXPECT_TRUE(s.isValidUtf8());
    }
    // The constructors validate too.
    EXPECT_EQ(String(std::string("x\xC3")).toUtf8(), "x" + fffd);
}

TEST(StringUtf8, RawDataIsKeptAsGivenAndReportedInvalid) {
    String raw = String::fromRawDataUnsafe("a\xC3(", 3);
    EXPECT_EQ(raw.asChars(), std::string_view("a\xC3(", 3));
    EXPECT_FALSE(raw.isValidUtf8());
}

TEST(StringText, SplitKeepsEmptyPieces) {
    EXPECT_EQ(texts(String("a\n\nb").split('\n')), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(texts(String(",a,").split(',')), (std::vector<std::string>{"", "a", ""}));
    EXPECT_EQ(texts(String("").split(',')), (std::vector<std::string>{""}));
    EXPECT_EQ(texts(String("a::b::c").split("::")), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(texts(String("abc").split("")), (std::vector<std::string>{"abc"}));
}

TEST(StringText, SliceTrimAndSearch) {
    String s("  hello world \t\n");
    EXPECT_EQ(s.trimmed(), "hello world");
    EXPECT_EQ(String(" \t ").trimmed(), "");
    EXPECT_EQ(String("hello").sliced(1, 3), "ell");
    EXPECT_EQ(String("hello").sliced(3), "lo");
    EXPECT_EQ(String("hello").sliced(3, 100), "lo");
    EXPECT_EQ(String("hello").sliced(9), "");
    String whole("whole");
    EXPECT_TRUE(whole.sliced(0).isSame(whole));
    EXPECT_EQ(String("abcabc").find("bc"), 1u);
    EXPECT_EQ(String("abcabc").find("bc", 2), 4u);
    EXPECT_EQ(String("abcabc").rfind("bc"), 4u);
    EXPECT_EQ(String("abc").find("x"), String::npos);
    EXPECT_TRUE(String("prefix.rest").startsWith("prefix."));
    EXPECT_TRUE(String("a.py").endsWith(".py"));
}

TEST(StringText, ArgFillsPlacesInOrderWithDisplayText) {
    EXPECT_EQ(String("The method is missing: {}, target object: {}.").arg(String("run"), Integer(3)),
              "The method is missing: run, target object: 3.");
    EXPECT_EQ(String("{} and {}").arg(1), "1 and {}"); // places without an argument stay
    EXPECT_EQ(String("none here").arg(1, 2), "none here");
    EXPECT_EQ(String("{}{}").arg(List{Integer(1), Integer(2)}, Any()), "[1, 2]None");
    EXPECT_EQ(String("{}").arg("text", 5), "text");
}

TEST(StringEquality, ComparesTextNotObjects) {
    String a("same text"), b(std::string("same ") + "text");
    EXPECT_FALSE(a.isSame(b));
    EXPECT_EQ(a, b);
    EXPECT_EQ(a.hash(), b.hash());
    EXPECT_FALSE(a == String("same texT"));
    EXPECT_TRUE(a == "same text");
    EXPECT_EQ(String() , String::unsafe(Any())); // a handle holding nothing reads as empty
    EXPECT_EQ(String("ab") + String("cd"), "abcd");
    EXPECT_EQ((String("ab") + String("cd")).hash(), String("abcd").hash());
    EXPECT_EQ(String("") + String("x"), "x");
    EXPECT_EQ(String::number(-9223372036854775807LL - 1), "-9223372036854775808");
}

TEST(StringKeys, MemberKeysDropLeadingDollarsAndShareTheirName) {
    meta_property_untyped property("$$name");
    meta_field_untyped field("$name");
    meta_method_untyped method("name");
    EXPECT_EQ(property.name(), "name");
    EXPECT_TRUE(property.name().isSame(field.name()));
    EXPECT_TRUE(field.name().isSame(method.name()));
    EXPECT_EQ(member_key("$$$").name(), "");
}

} // namespace
