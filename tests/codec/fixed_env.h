// A stand-in env for the codec tests, installed for the duration of each test: the clock and
// the calendar stand still, and the random source answers known bytes (or fails), so that every
// text made from them is known.
#pragma once

#include <gtest/gtest.h>

#include "port/env.h"

namespace qzdata_report_kelvo {

class WithFixedEnv : public ::testing::Test, public port::EnvWrapper {
  protected:
    void SetUp() override { port::Env::Install(this); }
    void TearDown() override { port::Env::Install(nullptr); }
    // The bytes 0xFF, 0xEE, ..., 0x00, 0xFF, ...; zeros when failing.
    bool RandomBytes(void* buffer, size_t size) override {
        for (size_t i = 0; i < size; ++i) {
            static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(randomFails ? 0 : ~(0x11 * i));
        }
        return !randomFails;
    }
    int64_t Time64() override { return now; }
    void GetLocalTime(port::LocalTime* out) override { *out = {2024, 2, 29, 7, 5, 9, 42}; }

    bool randomFails = false;
    int64_t now = (int64_t{1} << 32) + 1700000000;  // the low 32 bits are 1700000000
};

}  // namespace qzdata_report_kelvo
