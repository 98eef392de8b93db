#include <gmock/gmock.h>

#include <cerrno>

#include "tav/testing/MockCurlAPIUtility.h"
#include "tav/testing/MockCurlWrapper.h"
#include "tav/testing/MockKrbAPIWrapper.h"
#include "tav/testing/MockKrbHandler.h"
#include "tav/testing/MockLogger.h"
#include "tav/testing/MockMagic.h"
#include "tav/testing/MockQelArchiveUtils.h"
#include "tav/testing/MockQelSSL.h"
#include "tav/testing/MockTAVSystemUtils.h"
#include "tav/testing/MockTAVUtils.h"

using ::testing::_;
using ::testing::An;
using ::testing::DoAll;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsNull;
using ::testing::NotNull;
using ::testing::Ref;
using ::testing::Return;
using ::testing::SetArgReferee;
using ::testing::StrEq;
using ::testing::StrictMock;

namespace TAV::test
{
namespace
{

// Each test expects every operation of one interface, with its arguments in their places, and calls it through the
// interface. A call that reaches no expectation, or another one, fails the test.

TEST(MocksTest, Logger)
{
    StrictMock<MockLogger> mock;
    EXPECT_CALL(mock, log(2, "text"));
    EXPECT_CALL(mock, log(6, "component", "text"));
    ILogger& logger = mock;
    logger.log(2, "text");
    logger.log(6, "component", "text");
}

TEST(MocksTest, Magic)
{
    StrictMock<MockMagic> mock;
    EXPECT_CALL(mock, magicLoad(StrEq("/database")));
    EXPECT_CALL(mock, magicFile(StrEq("/file"))).WillOnce(Return("text/plain"));
    EXPECT_CALL(mock, magicClose());
    EXPECT_CALL(mock, magicOpen());
    EXPECT_CALL(mock, magicDescriptor(5)).WillOnce(Return("text/html"));
    IMagic& magic = mock;
    magic.magicOpen();
    magic.magicLoad("/database");
    EXPECT_STREQ(magic.magicFile("/file"), "text/plain");
    EXPECT_STREQ(magic.magicDescriptor(5), "text/html");
    magic.magicClose();
}

TEST(MocksTest, TAVSystemUtilsCalls)
{
    StrictMock<MockTAVSystemUtils> mock;
    EXPECT_CALL(mock, open("/file", 2, _)).WillOnce(DoAll(SetArgReferee<2>(EACCES), Return(-1)));
    EXPECT_CALL(mock, read(3, NotNull(), 8, _)).WillOnce(Return(7));
    EXPECT_CALL(mock, close(3, _)).WillOnce(Return(1));
    EXPECT_CALL(mock, setenv(StrEq("NAME"), StrEq("value"), 1, _)).WillOnce(Return(2));
    EXPECT_CALL(mock, pipe(ElementsAre(0, 0), _, 4)).WillOnce(DoAll(SetArgReferee<0>(std::array{5, 6}), Return(3)));
    EXPECT_CALL(mock, fork(_)).WillOnce(Return(4711));
    ITAVSystemUtils& system = mock;
    int err = 0;
    char byte = 0;
    std::array<int, 2> ends{};
    EXPECT_EQ(system.open("/file", 2, err), -1);
    EXPECT_EQ(err, EACCES);
    EXPECT_EQ(system.read(3, &byte, 8, err), 7);
    EXPECT_EQ(system.close(3, err), 1);
    EXPECT_EQ(system.setenv("NAME", "value", 1, err), 2);
    EXPECT_EQ(system.pipe(ends, err, 4), 3);
    EXPECT_THAT(ends, ElementsAre(5, 6));
    EXPECT_EQ(system.fork(err), 4711);
}

TEST(MocksTest, TAVSystemUtilsMoreCalls)
{
    StrictMock<MockTAVSystemUtils> mock;
    std::ofstream out;
    std::ifstream in;
    EXPECT_CALL(mock, waitpid(4711, NotNull(), 1, _)).WillOnce(DoAll(::testing::SetArgPointee<1>(9), Return(4711)));
    EXPECT_CALL(mock, mkdir("/directory", 0700, _)).WillOnce(Return(1));
    EXPECT_CALL(mock, dup2(3, 1, _)).WillOnce(Return(2));
    EXPECT_CALL(mock, stat(StrEq("/file"), NotNull(), _)).WillOnce(Return(3));
    EXPECT_CALL(mock, openOutputFile(Ref(out), "/out"));
    EXPECT_CALL(mock, openInputFile(Ref(in), "/in"));
    ITAVSystemUtils& system = mock;
    int err = 0;
    int status = 0;
    struct stat buffer
    {
    };
    EXPECT_EQ(system.waitpid(4711, &status, 1, err), 4711);
    EXPECT_EQ(status, 9);
    EXPECT_EQ(system.mkdir("/directory", 0700, err), 1);
    EXPECT_EQ(system.dup2(3, 1, err), 2);
    EXPECT_EQ(system.stat("/file", &buffer, err), 3);
    system.openOutputFile(out, "/out");
    system.openInputFile(in, "/in");
}

TEST(MocksTest, TAVUtils)
{
    StrictMock<MockTAVUtils> mock;
    const std::chrono::system_clock::time_point noon{std::chrono::hours(12)};
    EXPECT_CALL(mock, getCurrentSystemClockNow()).WillOnce(Return(noon));
    EXPECT_CALL(mock, setCPULimit(ElementsAre(1, 2), 20, "group")).WillOnce(Return(true));
    EXPECT_CALL(mock, removeCPULimit(ElementsAre(1), "group"));
    EXPECT_CALL(mock, executeSystemCommand(ElementsAre("/a", "b"), IsNull())).WillOnce(Return(true));
    EXPECT_CALL(mock, readSystemCommandOutput(ElementsAre("/c"), NotNull(), IsNull())).WillOnce(Return(true));
    EXPECT_CALL(mock, isCGroupsSupported()).WillOnce(Return(true));
    EXPECT_CALL(mock, isDefaultCGroupsMountAvailable()).WillOnce(Return(true));
    ITAVUtils& utils = mock;
    const std::map<int, bool> keep{{1, true}};
    EXPECT_EQ(utils.getCurrentSystemClockNow(), noon);
    EXPECT_TRUE(utils.setCPULimit({1, 2}, 20, "group"));
    utils.removeCPULimit({1}, "group");
    EXPECT_TRUE(utils.executeSystemCommand({"/a", "b"}, nullptr));
    EXPECT_TRUE(utils.readSystemCommandOutput({"/c"}, &keep, nullptr));
    EXPECT_TRUE(utils.isCGroupsSupported());
    EXPECT_TRUE(utils.isDefaultCGroupsMountAvailable());
}

TEST(MocksTest, QelSSL)
{
    StrictMock<MockQelSSL> mock;
    EXPECT_CALL(mock, getChecksumValues("/file", INPUT_FILE_PATH, _, _, _))
        .WillOnce(DoAll(SetArgReferee<2>("md5"), SetArgReferee<3>("sha1"), SetArgReferee<4>("sha256"), Return(true)));
    std::string out;
    EXPECT_CALL(mock, getHmacSha1("data", "key", Ref(out))).WillOnce(Return(true));
    EXPECT_CALL(mock, encodeBase64("text", Ref(out))).WillOnce(Return(true));
    EXPECT_CALL(mock, base64EncodeInputBuffer(Ref(out), IsNull(), 3)).WillOnce(Return(true));
    EXPECT_CALL(mock, decodeBase64("code", Ref(out))).WillOnce(Return(true));
    IQelSSL& ssl = mock;
    std::string md5;
    std::string sha1;
    std::string sha256;
    EXPECT_TRUE(ssl.getChecksumValues("/file", INPUT_FILE_PATH, md5, sha1, sha256));
    EXPECT_EQ(md5 + " " + sha1 + " " + sha256, "md5 sha1 sha256");
    EXPECT_TRUE(ssl.getHmacSha1("data", "key", out));
    EXPECT_TRUE(ssl.encodeBase64("text", out));
    EXPECT_TRUE(ssl.base64EncodeInputBuffer(out, nullptr, 3));
    EXPECT_TRUE(ssl.decodeBase64("code", out));
}

TEST(MocksTest, QelArchiveUtils)
{
    StrictMock<MockQelArchiveUtils> mock;
    const auto named = ElementsAre(Field(&ArchiveInputFileInfo::nameInArchive, "name"));
    EXPECT_CALL(mock, createArchive("/a.7z", ArchiveType::Zip, ElementsAre("/file"), named, "secret"))
        .WillOnce(Return(true));
    EXPECT_CALL(mock, extractArchive("/a.7z", "/out", "secret")).WillOnce(Return(true));
    IQelArchiveUtils& archives = mock;
    EXPECT_TRUE(archives.createArchive("/a.7z", ArchiveType::Zip, {"/file"}, {{"/file", "name"}}, "secret"));
    EXPECT_TRUE(archives.extractArchive("/a.7z", "/out", "secret"));
}

TEST(MocksTest, CurlAPIUtility)
{
    StrictMock<MockCurlAPIUtility> mock;
    char data = 0;
    void* const handle = &data;
    curl_slist list{};
    std::string response;
    EXPECT_CALL(mock, curlGlobalInit(3)).WillOnce(Return(CURLE_FAILED_INIT));
    EXPECT_CALL(mock, curlEasyInit()).WillOnce(Return(handle));
    EXPECT_CALL(mock, curlEasyCleanup(handle));
    EXPECT_CALL(mock, curlGlobalCleanup());
    EXPECT_CALL(mock, curlSlistAppend(IsNull(), StrEq("A: b"))).WillOnce(Return(&list));
    EXPECT_CALL(mock, curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, &list)).WillOnce(Return(CURLE_OK));
    EXPECT_CALL(mock, curlSlistFreeAll(&list));
    EXPECT_CALL(mock, curlSetStringOpt(handle, CURLOPT_URL, "url")).WillOnce(Return(CURLE_URL_MALFORMAT));
    EXPECT_CALL(mock, curlSetLongOpt(handle, CURLOPT_TIMEOUT, 7)).WillOnce(Return(CURLE_OUT_OF_MEMORY));
    EXPECT_CALL(mock, curlSetCallbackFuncOpt(handle)).WillOnce(Return(CURLE_OK));
    EXPECT_CALL(mock, curlSetResponseString(handle, CURLOPT_WRITEDATA, Ref(response))).WillOnce(Return(CURLE_OK));
    EXPECT_CALL(mock, curlEasyPerform(handle)).WillOnce(Return(CURLE_OPERATION_TIMEDOUT));
    EXPECT_CALL(mock, curlGetInfo(handle, CURLINFO_RESPONSE_CODE, An<long&>()))
        .WillOnce(DoAll(SetArgReferee<2>(404), Return(CURLE_OK)));
    EXPECT_CALL(mock, curlGetInfo(handle, CURLINFO_TOTAL_TIME, An<double&>()))
        .WillOnce(DoAll(SetArgReferee<2>(1.5), Return(CURLE_OK)));
    EXPECT_CALL(mock, curlEasyStrerror(CURLE_SSL_CONNECT_ERROR)).WillOnce(Return("text"));

    ICurlAPIUtility& api = mock;
    long status = 0;
    double seconds = 0;
    EXPECT_EQ(api.curlGlobalInit(3), CURLE_FAILED_INIT);
    EXPECT_EQ(api.curlEasyInit(), handle);
    EXPECT_EQ(api.curlSlistAppend(nullptr, "A: b"), &list);
    EXPECT_EQ(api.curlSetHeaderOpt(handle, CURLOPT_HTTPHEADER, &list), CURLE_OK);
    EXPECT_EQ(api.curlSetStringOpt(handle, CURLOPT_URL, "url"), CURLE_URL_MALFORMAT);
    EXPECT_EQ(api.curlSetLongOpt(handle, CURLOPT_TIMEOUT, 7), CURLE_OUT_OF_MEMORY);
    EXPECT_EQ(api.curlSetCallbackFuncOpt(handle), CURLE_OK);
    EXPECT_EQ(api.curlSetResponseString(handle, CURLOPT_WRITEDATA, response), CURLE_OK);
    EXPECT_EQ(api.curlEasyPerform(handle), CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_RESPONSE_CODE, status), CURLE_OK);
    EXPECT_EQ(api.curlGetInfo(handle, CURLINFO_TOTAL_TIME, seconds), CURLE_OK);
    EXPECT_EQ(std::make_pair(status, seconds), std::make_pair(404L, 1.5));
    EXPECT_STREQ(api.curlEasyStrerror(CURLE_SSL_CONNECT_ERROR), "text");
    api.curlSlistFreeAll(&list);
    api.curlEasyCleanup(handle);
    api.curlGlobalCleanup();
}

TEST(MocksTest, CurlWrapper)
{
    StrictMock<MockCurlWrapper> mock;
    std::string response;
    EXPECT_CALL(mock, initSession(3));
    EXPECT_CALL(mock, deInitSession(3)).WillOnce(Return(true));
    EXPECT_CALL(mock, configureOptions(Field(&TAVQueryConfig::serverHost, "host"), 4));
    EXPECT_CALL(mock, sendNetworkRequest(Field(&TAVHTTPHeader::firstHeader, "A: b"), "body", Ref(response), 3, _))
        .WillOnce(DoAll(SetArgReferee<2>("answer"), Return(true)));
    ICurlWrapper& client = mock;
    TAVQueryConfig config;
    config.serverHost = "host";
    TAVHTTPHeader header;
    header.firstHeader = "A: b";
    LumoStats stats;
    client.configureOptions(config, 4);
    client.initSession(3);
    EXPECT_TRUE(client.sendNetworkRequest(header, "body", response, 3, stats));
    EXPECT_EQ(response, "answer");
    EXPECT_TRUE(client.deInitSession(3));
}

TEST(MocksTest, KrbHandler)
{
    StrictMock<MockKrbHandler> mock;
    EXPECT_CALL(mock, configKrbSession(Field(&TAVProxyConfig::userPrincipal, "user@A.EXAMPLE"))).WillOnce(Return(true));
    EXPECT_CALL(mock, renewTicket()).WillOnce(Return(true));
    IkrbHandler& handler = mock;
    TAVProxyConfig config;
    config.userPrincipal = "user@A.EXAMPLE";
    EXPECT_TRUE(handler.configKrbSession(config));
    EXPECT_TRUE(handler.renewTicket());
}

// Each operation gives a number of its own, so that none is taken for another.

TEST(MocksTest, KrbAPIWrapperResults)
{
    StrictMock<MockKrbAPIWrapper> mock;
    char name[] = "name";
    EXPECT_CALL(mock, krb5InitContext(IsNull())).WillOnce(Return(1));
    EXPECT_CALL(mock, krb5ParseName(IsNull(), StrEq("user"), IsNull())).WillOnce(Return(2));
    EXPECT_CALL(mock, krb5UnparseName(IsNull(), IsNull(), IsNull())).WillOnce(Return(3));
    EXPECT_CALL(mock, krb5StringToEnctype(name, IsNull())).WillOnce(Return(4));
    EXPECT_CALL(mock, krb5Timeofday(IsNull(), IsNull())).WillOnce(Return(5));
    EXPECT_CALL(mock, krb5Principal2salt(IsNull(), IsNull(), IsNull())).WillOnce(Return(6));
    EXPECT_CALL(mock, krb5cStringToKey(IsNull(), 23, IsNull(), IsNull(), IsNull())).WillOnce(Return(7));
    EXPECT_CALL(mock, krb5KtResolve(IsNull(), StrEq("keytab"), IsNull())).WillOnce(Return(8));
    EXPECT_CALL(mock, krb5KtAddEntry(IsNull(), IsNull(), IsNull())).WillOnce(Return(9));
    EXPECT_CALL(mock, krb5CcResolve(IsNull(), StrEq("cache"), IsNull())).WillOnce(Return(10));
    EXPECT_CALL(mock, krb5GetInitCredsKeytab(IsNull(), IsNull(), IsNull(), IsNull(), 60, StrEq("service"), IsNull()))
        .WillOnce(Return(11));
    EXPECT_CALL(mock, krb5KtStartSeqGet(IsNull(), IsNull(), IsNull())).WillOnce(Return(12));
    EXPECT_CALL(mock, krb5KtNextEntry(IsNull(), IsNull(), IsNull(), IsNull())).WillOnce(Return(13));
    EXPECT_CALL(mock, krb5KtEndSeqGet(IsNull(), IsNull(), IsNull())).WillOnce(Return(14));
    EXPECT_CALL(mock, krb5CopyPrincipal(IsNull(), IsNull(), IsNull())).WillOnce(Return(15));
    EXPECT_CALL(mock, krb5CcClose(IsNull(), IsNull())).WillOnce(Return(16));
    EXPECT_CALL(mock, krb5KtClose(IsNull(), IsNull())).WillOnce(Return(17));

    IkrbAPIWrapper& api = mock;
    const std::vector<krb5_error_code> results{
        api.krb5InitContext(nullptr),
        api.krb5ParseName(nullptr, "user", nullptr),
        api.krb5UnparseName(nullptr, nullptr, nullptr),
        api.krb5StringToEnctype(name, nullptr),
        api.krb5Timeofday(nullptr, nullptr),
        api.krb5Principal2salt(nullptr, nullptr, nullptr),
        api.krb5cStringToKey(nullptr, 23, nullptr, nullptr, nullptr),
        api.krb5KtResolve(nullptr, "keytab", nullptr),
        api.krb5KtAddEntry(nullptr, nullptr, nullptr),
        api.krb5CcResolve(nullptr, "cache", nullptr),
        api.krb5GetInitCredsKeytab(nullptr, nullptr, nullptr, nullptr, 60, "service", nullptr),
        api.krb5KtStartSeqGet(nullptr, nullptr, nullptr),
        api.krb5KtNextEntry(nullptr, nullptr, nullptr, nullptr),
        api.krb5KtEndSeqGet(nullptr, nullptr, nullptr),
        api.krb5CopyPrincipal(nullptr, nullptr, nullptr),
        api.krb5CcClose(nullptr, nullptr),
        api.krb5KtClose(nullptr, nullptr),
    };
    EXPECT_THAT(results, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17));
}

TEST(MocksTest, KrbAPIWrapperReleases)
{
    StrictMock<MockKrbAPIWrapper> mock;
    krb5_creds creds{};
    krb5_data data{};
    krb5_keyblock key{};
    EXPECT_CALL(mock, krb5FreeContext(IsNull()));
    EXPECT_CALL(mock, krb5FreePrincipal(IsNull(), IsNull()));
    EXPECT_CALL(mock, krb5FreeCredContents(IsNull(), &creds));
    EXPECT_CALL(mock, krb5FreeCreds(IsNull(), &creds));
    EXPECT_CALL(mock, krb5FreeDataContents(IsNull(), &data));
    EXPECT_CALL(mock, krb5FreeData(IsNull(), &data));
    EXPECT_CALL(mock, krb5FreeKeyblockContents(IsNull(), &key));
    EXPECT_CALL(mock, krb5FreeKeyblock(IsNull(), &key));
    IkrbAPIWrapper& api = mock;
    api.krb5FreeContext(nullptr);
    api.krb5FreePrincipal(nullptr, nullptr);
    api.krb5FreeCredContents(nullptr, &creds);
    api.krb5FreeCreds(nullptr, &creds);
    api.krb5FreeDataContents(nullptr, &data);
    api.krb5FreeData(nullptr, &data);
    api.krb5FreeKeyblockContents(nullptr, &key);
    api.krb5FreeKeyblock(nullptr, &key);
}

} // namespace
} // namespace TAV::test
