#include "endpoint_scan/Record.h"

#include <gmock/gmock.h>

#include "endpoint_scan/SafeFiles.h"

using endpointscan::Json;
using endpointscan::Record;
using endpointscan::RecordEntry;
using endpointscan::recordFromText;

namespace
{

Record example(const std::string& path)
{
    RecordEntry entry;
    entry.path = path;
    entry.storedAs = "0001-ab";
    entry.facts.size = 5'000'000'000;
    entry.facts.mode = 04755;
    entry.facts.user = 1;
    entry.facts.group = 2;
    entry.facts.modified = {-5, 999'999'999};
    entry.facts.mimeType = "text/plain";
    entry.facts.md5 = "m";
    entry.facts.sha1 = "s";
    entry.facts.sha256 = "ab";
    return {"20260131T120000Z-1", "2026-01-31T12:00:00Z", "host", "/root dir\xff", {entry}};
}

TEST(RecordTest, ComesBackWholeFromItsText)
{
    for (const char* path : {"a", "sub/Grüße", "bad\xff\xfe", "new\nline\x01"})
    {
        const Record record = example(path);
        const Record back = recordFromText(toText(record));
        EXPECT_EQ(back.id, record.id);
        EXPECT_EQ(back.created, record.created);
        EXPECT_EQ(back.host, record.host);
        EXPECT_EQ(back.root, record.root);
        ASSERT_EQ(back.files.size(), 1U);
        EXPECT_EQ(back.files[0].path, path);
        EXPECT_EQ(toText(back), toText(record));
    }
}

TEST(RecordTest, SaysForPeopleWhatItSaysForPrograms)
{
    const Json object = Json::parse(toText(example("bad\xff")));
    EXPECT_EQ(object["files"][0]["path"], "bad\\xff");
    EXPECT_EQ(object["files"][0]["path_base64"], "YmFk/w==");
    EXPECT_EQ(object["files"][0]["mode"], "4755");
    EXPECT_EQ(object["files"][0]["modified"], "1969-12-31T23:59:55Z");
}

TEST(RecordTest, TellsWhereAFileWas)
{
    Record record = example("etc/x");
    EXPECT_EQ(placeOf(record, record.files[0]), "/root dir\xff/etc/x");
    record.root = "/";
    EXPECT_EQ(placeOf(record, record.files[0]), "/etc/x");
}

TEST(RecordTest, RefusesPlacesOutside)
{
    for (const char* path : {"/etc/passwd", "../x", "a/../../x", "a//b", "a/./b", "a/", "", "..", "."})
        EXPECT_THROW(recordFromText(toText(example(path))), std::runtime_error) << path;
    EXPECT_THROW(recordFromText(toText(example(std::string("a\0b", 3)))), std::runtime_error);
}

TEST(RecordTest, RefusesStoredNamesThatAreNone)
{
    for (const char* name : {"../x", "record.json", "-p", "", "/etc/passwd"})
    {
        Record record = example("a");
        record.files[0].storedAs = name;
        EXPECT_THROW(recordFromText(toText(record)), std::runtime_error) << name;
    }
}

TEST(RecordTest, RefusesOtherTexts)
{
    for (const char* text : {"", "{}", "[]", "nonsense", R"({"format": 2})", R"({"format": 1, "id": 5})"})
        EXPECT_THROW(recordFromText(text), std::runtime_error) << text;
}

TEST(RecordTest, TellsWhetherAPathStaysBelow)
{
    for (const char* path : {"a", "a/b", "...", "..a", "a b/-c", "@x"})
        EXPECT_TRUE(endpointscan::isBelow(path)) << path;
}

} // namespace
