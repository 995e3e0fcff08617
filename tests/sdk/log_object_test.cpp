#include "AnalyticsSDK/LogObject.h"

#include <gtest/gtest.h>

using AnalyticsSDK::LogArray;
using AnalyticsSDK::LogObject;

namespace {

// Documents whose writer can be taken away, as nothing in the library does.
struct BareObject : LogObject
{
    BareObject() { m_writer.reset(); }
};

struct BareArray : LogArray
{
    BareArray() { m_arrayWriter.reset(); }
};

std::string text(const LogArray& array)
{
    return std::string(array.GetArrayWriter()->text());
}

} // namespace

TEST(LogObject, WritesMembersOfEveryKindAndCopiesItsChildrenAsTheyStand)
{
    LogObject object;
    LogArray array;
    auto list = std::make_unique<LogArray>();
    std::unique_ptr<LogObject> child(new LogObject), open(new LogArray);
    LogObject event;
    EXPECT_EQ(object.EndObject() + array.EndObject() + list->AddString("x") + list->AddString(nullptr), 4u);
    EXPECT_EQ(list->AddInt(1) + list->AddInt64(1LL << 40) + list->AddDouble(1e20) + list->AddBoolean(false), 4u);
    EXPECT_EQ(list->AddObject(&object) + list->AddArray(&array) + list->EndObject(), 3u);
    EXPECT_EQ(child->AddBoolean("b", true), 1u);
    EXPECT_EQ(event.AddString("name", "x") + event.AddString("k", nullptr) + event.AddInt("n", 5), 3u);
    EXPECT_EQ(event.AddInt64("m", -(1LL << 40)) + event.AddDouble("d", 0.5) + event.AddArray("list", list.get()), 3u);
    EXPECT_EQ(event.AddObject("unended", child.get()) + child->EndObject() + event.AddObject("o", child.get()), 3u);
    static_cast<LogArray&>(*open).AddString(std::string(5000, 'x').c_str());
    list.reset();
    child.reset();
    open.reset(); // an array, by way of the object: a leak checker sees what stays behind
    EXPECT_EQ(event.EndObject(), 1u);
    EXPECT_EQ(event.ToString(),
              R"({ "name": "x", "k": null, "n": 5, "m": -1099511627776, "d": 0.5, "list": [ "x", )"
              R"(null, 1, 1099511627776, 1e+20, false, { }, [ ] ], "unended": { "b": true, "o": { "b": true } })");
}

TEST(LogObject, ConvertsToWideCharactersAndAnArrayItsUnusedObject)
{
    LogObject object;
    object.AddString("k", "a\xC3\xA9\xF0\x9F\x98\x80");
    object.EndObject();
    EXPECT_EQ(object.ToWString(), L"{ \"k\": \"a\u00E9\U0001F600\" }");
    EXPECT_TRUE(BareObject().ToString().empty() && BareObject().ToWString().empty());
    LogArray array;
    EXPECT_EQ(array.AddInt(1) + array.EndObject(), 2u);
    EXPECT_EQ(array.ToString(), "{");
    EXPECT_EQ(array.ToWString(), L"{");
    EXPECT_EQ(array.LogObject::EndObject(), 1u);
    EXPECT_EQ(array.ToString(), "{ }");
}

TEST(LogObject, RefusesWithoutAWriterOfItsOwn)
{
    BareObject bare;
    LogObject child;
    LogArray array;
    EXPECT_EQ(bare.AddString("k", "v") | bare.AddInt("k", 1) | bare.AddInt64("k", 1) | bare.AddDouble("k", 1), 0u);
    EXPECT_EQ(bare.AddBoolean("k", true) | bare.AddObject("k", &child) | bare.AddArray("k", &array), 0u);
    EXPECT_EQ(bare.EndObject(), 0u);
    BareArray elements;
    EXPECT_EQ(elements.AddString("v") | elements.AddInt(1) | elements.AddInt64(1) | elements.AddDouble(1), 0u);
    EXPECT_EQ(elements.AddBoolean(true) | elements.AddObject(&child) | elements.AddArray(&array), 0u);
    EXPECT_EQ(elements.EndObject(), 0u);
}

TEST(LogObject, CountsAChildWithoutAWriterAsDoneWhereAnArrayRefusesIt)
{
    BareObject bare;
    BareArray bare_array;
    LogObject object;
    EXPECT_EQ(object.AddObject("k", &bare), 1u);
    EXPECT_EQ(object.AddArray("k", &bare_array), 1u);
    EXPECT_EQ(object.ToString(), "{");
    LogArray array;
    EXPECT_EQ(array.AddObject(&bare) | array.AddArray(&bare_array) | array.AddObject(nullptr) | array.AddArray(nullptr),
              0u);
    EXPECT_EQ(text(array), "[");
}

TEST(LogObject, BeginsAnewAsIfItWereNew)
{
    for (const std::size_t length : {100, 100000}) {
        LogObject object;
        LogArray array;
        for (int round = 0; round < 3; ++round) {
            object.AddString("k", std::string(length, 'x').c_str());
            object.EndObject();
            array.AddString(std::string(length, 'y').c_str());
            array.EndObject();
            EXPECT_EQ(object.ToString(), "{ \"k\": \"" + std::string(length, 'x') + "\" }");
            EXPECT_EQ(text(array), "[ \"" + std::string(length, 'y') + "\" ]");
            EXPECT_EQ(array.AddArray(&array), 1u); // makes no sense, and no harm
            object.Restart();
            array.Restart();
        }
        EXPECT_EQ(object.ToString() + text(array), "{[");
    }
}
