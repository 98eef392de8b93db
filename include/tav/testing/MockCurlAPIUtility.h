#pragma once

#include <gmock/gmock.h>

#include <string>

#include "tav/ICurlAPIUtility.h"

namespace TAV::test
{

/// The calls into libcurl as a test expects them, by GoogleMock. `FakeCurlAPIUtility` hands out handles and lists, sees
/// to it that they are released, and needs no GoogleMock; a `CurlWrapper` is tested more easily with that one.
///
///     auto api = std::make_shared<::testing::NiceMock<TAV::test::MockCurlAPIUtility>>();
///     EXPECT_CALL(*api, curlGlobalInit(CURL_GLOBAL_ALL)).WillOnce(Return(CURLE_FAILED_INIT));
///
///     EXPECT_THROW(TAV::CurlWrapper(logger, api), TAV::FMXException);
///
/// What is not expected gives `CURLE_OK` or null. `curlGetInfo` is one name for two operations: expect the one for a
/// number as `curlGetInfo(_, CURLINFO_RESPONSE_CODE, An<long&>())`, that for a time with `An<double&>()`.
///
/// The program that uses it links GTest::gmock itself.
class MockCurlAPIUtility : public ICurlAPIUtility
{
public:
    MOCK_METHOD(CURLcode, curlGlobalInit, (long flags), (override));
    MOCK_METHOD(void*, curlEasyInit, (), (override));
    MOCK_METHOD(void, curlEasyCleanup, (void* handle), (override));
    MOCK_METHOD(void, curlGlobalCleanup, (), (override));
    MOCK_METHOD(curl_slist*, curlSlistAppend, (curl_slist * list, const char* line), (override));
    MOCK_METHOD(CURLcode, curlSetHeaderOpt, (void* handle, CURLoption option, curl_slist* list), (override));
    MOCK_METHOD(void, curlSlistFreeAll, (curl_slist * list), (override));
    MOCK_METHOD(CURLcode, curlSetStringOpt, (void* handle, CURLoption option, std::string value), (override));
    MOCK_METHOD(CURLcode, curlSetLongOpt, (void* handle, CURLoption option, long value), (override));
    MOCK_METHOD(CURLcode, curlSetCallbackFuncOpt, (void* handle), (override));
    MOCK_METHOD(CURLcode, curlSetResponseString, (void* handle, CURLoption option, std::string& response), (override));
    MOCK_METHOD(CURLcode, curlEasyPerform, (void* handle), (override));
    MOCK_METHOD(CURLcode, curlGetInfo, (void* handle, CURLINFO info, long& out), (override));
    MOCK_METHOD(CURLcode, curlGetInfo, (void* handle, CURLINFO info, double& out), (override));
    MOCK_METHOD(const char*, curlEasyStrerror, (CURLcode code), (override));
};

} // namespace TAV::test
