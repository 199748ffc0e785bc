// A file of statistics or failure lines. The context opens one only for a line that self-
// reporting could not send at once; until self-reporting is on, none is ever opened.
#pragma once

#include <string>

#include "port/log_file.h"

namespace qzdata_report_kelvo {

// Open or not; once open, the file is held by this stream alone (the upload of another run
// skips it) until Close or destruction. Used under the lock of the report context.
class CReportLogStream {
  public:
    CReportLogStream();
    virtual ~CReportLogStream() = default;
    CReportLogStream(const CReportLogStream&) = delete;
    CReportLogStream& operator=(const CReportLogStream&) = delete;

    // Opens a new file `prefix` + (local time stamp) + ".log", or, when that cannot be had,
    // the first of the names with a counter 1 to 100 behind the stamp. A file that already has
    // bytes gets a line end first. Stays closed when all names fail; does nothing when open.
    void OpenLogFile(const std::string& prefix);
    bool IsOpen() const { return file.IsOpen(); }
    // Writes `line` and the line end and flushes both; does nothing when closed. A write error
    // is not reported: the line is lost.
    void WriteLine(const std::string& line);
    void Close();

    // The full name of the open file; empty before the first open.
    const std::string& GetPath() const { return path; }

  private:
    const std::string lineEnd;
    std::string path;
    port::LockedFile file;
};

}  // namespace qzdata_report_kelvo
