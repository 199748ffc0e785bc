#include "delivery/report_log_stream.h"

#include "codec/utils.h"
#include "delivery/constants.h"

namespace qzdata_report_kelvo {

CReportLogStream::CReportLogStream() : lineEnd(delivery::kLogLineEnd) {}

void CReportLogStream::OpenLogFile(const std::string& prefix) {
    if (IsOpen()) {
        return;
    }
    const std::string name = prefix + FormatLocalStamp();
    for (int counter = 0; counter <= delivery::kLastLogNameCounter; ++counter) {
        const std::string candidate = name +
                                      (counter == 0 ? std::string() : std::to_string(counter)) +
                                      delivery::kLogExtension;
        if (file.Open(candidate)) {
            path = candidate;
            break;
        }
    }
    if (IsOpen() && file.Size() > 0) {
        file.Append(lineEnd);
    }
}

void CReportLogStream::WriteLine(const std::string& line) {
    if (IsOpen()) {
        file.Append(line + lineEnd);
    }
}

void CReportLogStream::Close() {
    file.Close();
}

}  // namespace qzdata_report_kelvo
