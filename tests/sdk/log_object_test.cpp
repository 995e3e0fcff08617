#include "AnalyticsSDK/LogObject.h"

#include <gtest/gtest.h>

using AnalyticsSDK::LogArray;
using AnalyticsSDK::LogObject;

namespace {

// Documents whose writer can be taken away, as nothing in the library does.
struct BareObject : LogObject
{
    BareObject() { writer.reset(); }
};

struct BareArray : LogArray
{
    BareArray() { array_writer.reset(); }
};

std::string text(const LogArray& array)
{
    return array.GetArrayWriter()->text;
}

} // namespace

TEST(LogObject, CopiesItsChildrenAsTheyStand)
{
    auto list = std::make_unique<LogArray>();
    std::unique_ptr<LogObject> child(new LogObject), open(new LogArray);
    LogObject event;
    LogArray empty;
    empty.EndObject();
    child->AddBoolean("b", true);
    event.AddObject("unended", child.get());
    child->EndObject();
    list->AddString(nullptr);
    list->AddInt(-1);
    list->AddInt64(1LL << 40);
    list->AddDouble(1e20);
    list->AddBoolean(false);
    list->AddObject(child.get());
    list->AddArray(&empty);
    list->EndObject();
    event.AddString("k", nullptr);
    event.AddInt("n", 5);
    event.AddInt64("m", -(1LL << 40));
    event.AddDouble("d", 0.5);
    event.AddArray("list", list.get());
    static_cast<LogArray&>(*open).AddString(std::string(5000, 'x').c_str());
    list.reset();
    child.reset();
    open.reset(); // an array, by way of the object: a leak checker sees what stays behind
    event.EndObject();
    EXPECT_EQ(event.ToString(),
              R"({ "unended": { "b": true, "k": null, "n": 5, "m": -1099511627776, "d": 0.5, "list": [ null, -1, )"
              R"(1099511627776, 1e+20, false, { "b": true }, [ ] ] })");
}

TEST(LogObject, ConvertsToWideCharacters)
{
    LogObject object;
    object.AddString("k", "a\xC3\xA9\xF0\x9F\x98\x80");
    object.EndObject();
    EXPECT_EQ(object.ToWString(), L"{ \"k\": \"a\u00E9\U0001F600\" }");
    LogArray array;
    array.AddInt(1);
    EXPECT_EQ(array.ToString(), "{") << "the object that an array does not use";
}

TEST(LogObject, RefusesWithoutAWriter)
{
    BareObject bare;
    BareArray bare_array;
    LogObject object;
    LogArray array;
    const std::pair<uint32_t, uint32_t> answers[] = {
        {bare.AddInt("k", 1), 0},
        {bare.AddObject("k", &object), 0},
        {bare.AddArray("k", &array), 0},
        {bare.EndObject(), 0},
        {bare_array.AddInt(1), 0},
        {bare_array.AddObject(&object), 0},
        {bare_array.EndObject(), 0},
        {object.AddObject("k", &bare), 1}, // counts as done where an array refuses it
        {object.AddArray("k", &bare_array), 1},
        {array.AddObject(&bare), 0},
        {array.AddArray(&bare_array), 0},
        {array.AddObject(nullptr), 0},
        {array.AddArray(&array), 1}, // makes no sense, and no harm
    };
    for (const auto& row : answers)
        EXPECT_EQ(row.first, row.second) << "row " << &row - answers;
    EXPECT_EQ(bare.ToWString(), L"");
    EXPECT_EQ(object.ToString(), "{");
}

TEST(LogObject, BeginsAnewAsIfItWereNew)
{
    LogObject object;
    LogArray array;
    for (const std::size_t length : {0, 100, 3000, 100000, 100}) {
        const std::string value(length, 'x');
        object.AddString("k", value.c_str());
        object.EndObject();
        array.AddString(value.c_str());
        array.EndObject();
        EXPECT_EQ(object.ToString(), "{ \"k\": \"" + value + "\" }");
        EXPECT_EQ(text(array), "[ \"" + value + "\" ]");
        object.Restart();
        array.Restart();
    }
}
