// URL and game events. A URL event is a custom event whose path is built from the parts of an
// absolute URL, so that a collector can count by host and path without parsing URLs; a game
// event is an event path of labelled parts for SendEventWithSrc. Any thread that may report.
#pragma once

#include <string>

#include "api/typed_events.h"
#include "report/report_object.h"

namespace qzdata_report_kelvo {

// Path `kind`/reversed host/path with its slashes escaped, e.g. "OpenUrl/cc.bb.aa/.2fx.2fy" for
// http://aa.bb.cc/x/y?q (query and fragment play no part); the host of a "chrome" or "tze" URL
// (in any case) gets "local." in front. The description is the translated path, none when it
// equals the path. False for a null `url` or `kind`, a text that is no absolute URL, or a part
// that does not convert to UTF-8; the event is then not reported.
bool ReportUrlEvent(ReportObject& object, EventFamily family, const wchar_t* url, const char* kind);

// `url` read in `codePage` (0: the system's character set, 65001: UTF-8) into `wide`. False for a
// null `url` or a failed conversion.
bool WidenUrl(const char* url, unsigned int codePage, std::wstring& wide);

// Path `name`/host/escaped path/`suffix` of the UTF-8 `url`, with the host as it stands, and
// duration `dur`. The description is `desc` when given, else as for ReportUrlEvent. False for a
// null `name`, `url` or `suffix`, a `dur` below 0, or a text that is no absolute URL.
bool ReportUrlWithDur(ReportObject& object, EventFamily family, const char* name, const char* url,
                      const char* suffix, int dur, const char* desc);

// `path` becomes eid[/src]/GameID=`gameId`/ServerID=`serverId`/From=`from`[_TraceId=`traceId`]
// in UTF-8: `src` is left out when null or empty, every "/" of `from` becomes "_", and the
// trace part is left out for an empty `traceId`. `gameId` and `serverId` go in unchecked, so a
// "/" in them makes another segment. False for a null or empty `eid`.
bool BuildGameInfoEid(const char* eid, const char* src, const std::wstring& gameId,
                      const std::wstring& serverId, const std::wstring& from,
                      const std::wstring& traceId, std::string& path);

}  // namespace qzdata_report_kelvo
