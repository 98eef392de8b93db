#pragma once

#include <ctime>

namespace TAV::test
{

// Made once for these tests; their key is forgotten.

/// Valid in 2020.
inline constexpr const char* kPastCertificate = "-----BEGIN CERTIFICATE-----\n"
                                                "MIIBBTCBrAIBATAKBggqhkjOPQQDAjAPMQ0wCwYDVQQDDARwYXN0MB4XDTIwMDEw\n"
                                                "MTAwMDAwMFoXDTIxMDEwMTAwMDAwMFowDzENMAsGA1UEAwwEcGFzdDBZMBMGByqG\n"
                                                "SM49AgEGCCqGSM49AwEHA0IABMr/Yt+SEid3qoKPaNjwKN41BWY2/8i4oqk8QRXj\n"
                                                "Yex/hdb3lSQvtafIOKlpZ6dddNELTp71yMQj3KntZKB7Oa4wCgYIKoZIzj0EAwID\n"
                                                "SAAwRQIgU2TT/g0lPjtgnQlD+QHrLlB4SQs8DnPC8FMsWajEog0CIQD6Jky5IBEu\n"
                                                "VdRAXXOg6SWx1whJqq2QILjLkQldp/GGNA==\n"
                                                "-----END CERTIFICATE-----\n";

/// Valid from 2024 to 2033.
inline constexpr const char* kPresentCertificate = "-----BEGIN CERTIFICATE-----\n"
                                                   "MIIBCjCBsgIBAjAKBggqhkjOPQQDAjASMRAwDgYDVQQDDAdwcmVzZW50MB4XDTI0\n"
                                                   "MDEwMTAwMDAwMFoXDTM0MDEwMTAwMDAwMFowEjEQMA4GA1UEAwwHcHJlc2VudDBZ\n"
                                                   "MBMGByqGSM49AgEGCCqGSM49AwEHA0IABMr/Yt+SEid3qoKPaNjwKN41BWY2/8i4\n"
                                                   "oqk8QRXjYex/hdb3lSQvtafIOKlpZ6dddNELTp71yMQj3KntZKB7Oa4wCgYIKoZI\n"
                                                   "zj0EAwIDRwAwRAIgKIEaTwbHR272DZA6N6Q4kLknTMxDnIjHprAns/02n7MCICDH\n"
                                                   "HWugZfwGA/BSR94Hou23F0MAEHgNK0HiTN8NE6Um\n"
                                                   "-----END CERTIFICATE-----\n";

inline constexpr std::time_t kMidst2019 = 1561939200;
inline constexpr std::time_t kMidst2020 = 1593561600;
inline constexpr std::time_t kMidst2025 = 1751328000;
inline constexpr std::time_t kMidst2035 = 2066860800;

} // namespace TAV::test
