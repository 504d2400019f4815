#include "apps/web/service/variables/json.h"

#include "apps/web/service/variables/setrequest.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

// Pairs as "key=value", nested ones as "key:value", joined by '|'; or "@<error position>".
std::string parsed(const std::string& text) {
    Json json;
    if (!json.parse(text))
        return "@" + std::to_string(json.errorPosition());
    std::string pairs;
    for (const auto& [key, value] : json.result())
        pairs += (pairs.empty() ? "" : "|") + key + (value.isNested ? ":" : "=") + value.text;
    return pairs;
}

TEST(Json, SplitsObjectsAndArraysOneLevelDeep) {
    EXPECT_EQ(parsed(R"({"a":1,"b":"x"})"), "a=1|b=x");
    EXPECT_EQ(parsed("\t{ a : 1 }\r\n "), "a=1");
    EXPECT_EQ(parsed(R"({"a":{"b":[1,2]}})"), R"(a:{"b":[1,2]})");
    EXPECT_EQ(parsed(R"([1, "x",[2,[3]],{"y":{}}])"), R"(=1|=x|:[2,[3]]|:{"y":{}})");
    EXPECT_EQ(parsed(R"({'a':'it is "b"',"a":-1.5e3 })"), R"(a=it is "b"|a=-1.5e3)");
    EXPECT_EQ(parsed(R"({"a":"","b":"{[,:]}"})"), "a=|b={[,:]}");
    EXPECT_EQ(parsed(R"({"a":"back\slash"})"), R"(a=back\slash)");
    EXPECT_EQ(parsed(std::string("{a:1\0002,b:\"\0\"}", 13)), std::string("a=1\0002|b=\0", 9));
}

TEST(Json, EachStateIsACallOfItsOwn) {
    Json json;
    EXPECT_EQ(json.nextChar<0>('['), 4);
    EXPECT_EQ(json.nextChar<0>('{'), 4) << "the array flag stays";
    EXPECT_EQ(json.nextChar<4>('"'), 5);
    EXPECT_EQ(json.nextChar<2>(':'), 2) << "only without a value's closing quote";
    EXPECT_EQ(json.nextChar<7>(' '), 7);
    EXPECT_EQ(json.nextChar<7>('}'), 8);
}

TEST(Json, RefusesTooManyPairsAndDiscardsEarlierOnes) {
    std::string body = "[";
    for (std::size_t i = 0; i < Json::MAX_PAIRS; ++i)
        body += "1,";
    Json json;
    EXPECT_FALSE(json.parse(body + "1,"));
    EXPECT_EQ(json.errorPosition(), static_cast<int>(body.size() + 1));
    EXPECT_TRUE(json.parse(body));
    EXPECT_EQ(json.result().size(), Json::MAX_PAIRS);
    EXPECT_EQ(json.errorPosition(), -1);
}

// "<memory>.<variable>[<index>]=<last value>", or the error text.
std::string assigned(const std::string& body) {
    SetRequest setRequest;
    std::stringstream errors;
    if (!setRequest.parse(body, errors))
        return errors.str();
    if (!setRequest.hasValue())
        return "nothing";
    return setRequest.memory + "." + setRequest.variable + "[" + std::to_string(setRequest.elementIndex()) +
           "]=" + setRequest.pairs.back().second.text;
}

TEST(SetRequest, HasNoValueWhereverTheBodyIsCut) {
    const std::string body = R"({"M":{"V":{"Index":1,"Index":"2","A":5}}})";
    for (std::size_t size = 0; size < body.size() - 1; ++size)
        EXPECT_EQ(assigned(body.substr(0, size)), "nothing") << size;
    EXPECT_EQ(assigned(body.substr(0, body.size() - 1)), "M.V[2]=5") << "only the last bracket is missing";
    EXPECT_EQ(assigned(R"({"M":0,"N":{"U":0,"V":5}})"), "M.V[0]=5") << "first key, last key";
    for (const char* empty : {"[]", R"({"M":{}})", R"({"M":{"V":{}}})", R"({"M":{"V":{"Index":5}}})"})
        EXPECT_EQ(assigned(empty), "nothing") << empty;
    EXPECT_THROW(assigned(R"({"M":{"Index":"x","V":5}})"), std::invalid_argument);
    EXPECT_THROW(assigned(R"({"M":{"Index":99999999999,"V":5}})"), std::out_of_range);
}

TEST(SetRequest, ReportsErrorsOfEachLevelAndItsDepth) {
    EXPECT_EQ(assigned(R"({"M":{"V" 5}})"), "JSON parse error at 5.\r\n");
    std::string deep = "1";
    for (int level = 0; level < 16; ++level)
        deep.insert(0, 1, '[').push_back(']');
    EXPECT_EQ(assigned(deep), ".[0]=1");
    EXPECT_EQ(assigned("[" + deep + "]"), "Nested deeper than 16 levels.\r\n");
}

} // namespace
