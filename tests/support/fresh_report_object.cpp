// Linked into the test binaries whose tests use the process-wide report object: each test starts
// with a fresh one, so that the tests pass alike one per process and all in one process.
#include <gtest/gtest.h>

#include "report/report_object.h"

namespace {

// Also after each test: an object left alive to the end of the process would show its lazily
// made resources as leaks.
struct FreshReportObject : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        qzdata_report_kelvo::ResetReportObjectForTesting();
    }
    void OnTestEnd(const testing::TestInfo&) override {
        qzdata_report_kelvo::ResetReportObjectForTesting();
    }
};

const bool installed = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FreshReportObject);
    return true;
}();

}  // namespace
