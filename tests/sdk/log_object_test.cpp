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

TEST(LogObject, WritesMembersAndElementsOfEveryKindAndCopiesItsChildrenAsTheyStand)
{
    auto list = std::make_unique<LogArray>();
    std::unique_ptr<LogObject> child(new LogObject), open(new LogArray);
    LogObject event;
    LogArray empty;
    empty.EndObject();
    EXPECT_EQ(child->AddBoolean("b", true) + event.AddObject("unended", child.get()) + child->EndObject(), 3u);
    EXPECT_EQ(list->AddString(nullptr) + list->AddInt(-1) + list->AddInt64(1LL << 40) + list->AddDouble(1e20), 4u);
    EXPECT_EQ(list->AddBoolean(false) + list->AddObject(child.get()) + list->AddArray(&empty), 3u);
    EXPECT_EQ(event.AddString("k", nullptr) + event.AddInt("n", 5) + event.AddInt64("m", -(1LL << 40)), 3u);
    EXPECT_EQ(event.AddDouble("d", 0.5) + list->EndObject() + event.AddArray("list", list.get()), 3u);
    static_cast<LogArray&>(*open).AddString(std::string(5000, 'x').c_str());
    list.reset();
    child.reset();
    open.reset(); // an array, by way of the object: a leak checker sees what stays behind
    EXPECT_EQ(event.EndObject(), 1u);
    EXPECT_EQ(event.ToString(),
              R"({ "unended": { "b": true, "k": null, "n": 5, "m": -1099511627776, "d": 0.5, "list": [ null, -1, )"
              R"(1099511627776, 1e+20, false, { "b": true }, [ ] ] })");
}

TEST(LogObject, ConvertsToWideCharactersAndAnArrayItsUnusedObject)
{
    LogObject object;
    object.AddString("k", "a\xC3\xA9\xF0\x9F\x98\x80");
    object.EndObject();
    EXPECT_EQ(object.ToWString(), L"{ \"k\": \"a\u00E9\U0001F600\" }");
    LogArray array;
    EXPECT_EQ(array.AddInt(1) + array.EndObject(), 2u);
    EXPECT_EQ(array.ToString(), "{");
}

TEST(LogObject, RefusesWithoutAWriterAndCountsAChildWithoutOneAsDoneWhereAnArrayRefusesIt)
{
    BareObject bare;
    BareArray bare_array;
    LogObject object;
    LogArray array;
    EXPECT_EQ(bare.AddInt("k", 1) | bare.AddObject("k", &object) | bare.AddArray("k", &array) | bare.EndObject(), 0u);
    EXPECT_EQ(bare_array.AddInt(1) | bare_array.AddObject(&object) | bare_array.EndObject(), 0u);
    EXPECT_EQ(bare.ToWString(), L"");
    EXPECT_EQ(object.AddObject("k", &bare) + object.AddArray("k", &bare_array), 2u);
    EXPECT_EQ(array.AddObject(&bare) | array.AddArray(&bare_array) | array.AddObject(nullptr), 0u);
    EXPECT_EQ(object.ToString() + text(array), "{[");
}

TEST(LogObject, BeginsAnewAsIfItWereNew)
{
    LogObject object;
    LogArray array;
    for (const std::size_t length : {0, 100, 3000, 100000, 100}) {
        const std::string value(length, 'x');
        EXPECT_EQ(object.AddString("k", value.c_str()) + object.EndObject(), 2u);
        EXPECT_EQ(array.AddString(value.c_str()) + array.EndObject(), 2u);
        EXPECT_EQ(object.ToString() + text(array), "{ \"k\": \"" + value + "\" }[ \"" + value + "\" ]");
        EXPECT_EQ(array.AddArray(&array), 1u); // makes no sense, and no harm
        object.Restart();
        array.Restart();
    }
}
