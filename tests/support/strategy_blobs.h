// Strategy blobs for tests, made independently of the library by
// tests/strategy/data/make_blobs.sh (openssl, keyed by the default profile's strategy pass).
// Each binary that includes this header defines QZ_STRATEGY_TEST_DATA as the data folder.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "codec/md5.h"
#include "deployment_config.h"

namespace qz_test {

// The bytes of a file of the data folder, e.g. "good.blob"; empty when it is missing.
inline std::string ReadStrategyData(const std::string& name) {
    std::ifstream file(std::string(QZ_STRATEGY_TEST_DATA) + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The fallback list of "good" and of the variants made from it.
inline const std::vector<std::string> kGoodFallback = {"10.1.1.1", "10.1.1.2", "192.168.100.200"};

// False when this build's strategy pass is not the one the blobs were made with.
inline bool StrategyBlobsFit() {
    qzdata_report_kelvo::Md5Context md5;
    md5.Start(qzdata_report_kelvo::deployment::kStrategyPass);
    return ReadStrategyData("pass.md5") == md5.HexDigest() + "\n";
}

// A build with another profile's pass cannot decode the blobs: its tests skip instead of failing.
class StrategyBlobTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!StrategyBlobsFit())
            GTEST_SKIP() << "the blobs were made with another strategy pass than this build's";
    }
};

}  // namespace qz_test
