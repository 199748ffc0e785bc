// A file of statistics or failure lines. The context opens one only for a line that self-
// reporting could not send at once; until self-reporting is on, none is ever opened.
#pragma once

namespace qzdata_report_kelvo {

class CReportLogStream {
  public:
    CReportLogStream() = default;
    virtual ~CReportLogStream() = default;
    CReportLogStream(const CReportLogStream&) = delete;
    CReportLogStream& operator=(const CReportLogStream&) = delete;
};

}  // namespace qzdata_report_kelvo
