// A fresh report object per test, initialised but never run unless a test runs it: posts then
// wait in the worker's queue, where the test reads them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "report/report_object.h"

namespace qzdata_report_kelvo {

inline std::string TestHardwareId() {
    return "HW";
}

class ReportObjectTest : public ::testing::Test {
  protected:
    ReportObjectTest() { Reset(); }

    // A new object whose built records are seen from now on.
    void Reset() {
        object.reset(new ReportObject());
        {
            std::lock_guard<std::mutex> guard(builtMutex);
            builtQueries.clear();
        }
        // builtMutex is not held here: the observer takes it under the thread's own lock.
        object->GetReportThread().SetHardwareIdSourceForTesting(&TestHardwareId);
        object->GetReportThread().SetRecordObserverForTesting([this](const BuiltRecord& built) {
            std::lock_guard<std::mutex> guard(builtMutex);
            builtQueries.push_back(built.signedQuery);
        });
    }

    bool InitObject(uint32_t eventMask = 7, bool trace = false) {
        return object->Init(L"http://collector.test/", "D", "P", 5000, nullptr, L"", eventMask,
                            trace);
    }

    std::vector<ReportPost> Queued() { return object->GetReportThread().QueuedPostsForTesting(); }

    std::vector<ReportRecord> QueuedRecords() {
        std::vector<ReportRecord> records;
        for (const ReportPost& post : Queued()) {
            records.insert(records.end(), post.records.begin(), post.records.end());
        }
        return records;
    }

    // The one queued record; fails the test when there is not exactly one.
    ReportRecord OnlyRecord() {
        const std::vector<ReportRecord> records = QueuedRecords();
        EXPECT_EQ(1u, records.size());
        return records.empty() ? ReportRecord() : records.front();
    }

    // The record without the four common fields and with a time stamp blanked, both checked here.
    ReportRecord Own(ReportRecord record) {
        const ReportRecord common{{"act", "zhwebevent"},
                                  {"dty", "D"},
                                  {"pro", "P"},
                                  {"session_id", object->GetSessionId()}};
        for (const auto& field : common) {
            EXPECT_EQ(field.second, record[field.first]);
            record.erase(field.first);
        }
        if (record.count("ati") != 0) {
            EXPECT_TRUE(std::regex_match(record["ati"], std::regex("[0-9]{14}")));
            record["ati"] = "";
        }
        return record;
    }

    // Signed queries the worker built, in order.
    std::vector<std::string> BuiltQueries() {
        std::lock_guard<std::mutex> guard(builtMutex);
        return builtQueries;
    }

    // The event ids of the built records, in order.
    std::vector<std::string> BuiltEids() {
        std::vector<std::string> eids;
        for (const std::string& query : BuiltQueries()) {
            std::smatch match;
            const bool found =
                std::regex_search(query, match, std::regex("(?:extra=|%26)eid%3D([a-z]+)"));
            eids.push_back(found ? match[1].str() : "?");
        }
        return eids;
    }

    // Declared first, destroyed last: the worker may report into them until the object is gone.
    std::mutex builtMutex;
    std::vector<std::string> builtQueries;

    std::unique_ptr<ReportObject> object;
};

}  // namespace qzdata_report_kelvo
