// Every name that travels on the wire, defined once: the keys of a record, the fixed values of
// records, and the fields that the library writes into a request target. A record key is a name
// inside a record (ReportRecord); a target field carries its separator and "=" because it is
// appended to a request target as it stands.
#pragma once

namespace qzdata_report_kelvo {
namespace wire {

// Record keys.
inline constexpr char kRecordKeyAction[] = "act";
inline constexpr char kRecordKeyTime[] = "ati";
inline constexpr char kRecordKeyDuration[] = "dur";
inline constexpr char kRecordKeyExtra[] = "extra";
inline constexpr char kRecordKeySdkVersion[] = "sdk_ver";
inline constexpr char kRecordKeyHardwareId[] = "kelvo_mid";
inline constexpr char kRecordKeyDeviceId[] = "mid";
inline constexpr char kRecordKeySessionId[] = "session_id";
inline constexpr char kRecordKeyDty[] = "dty";
inline constexpr char kRecordKeyProduct[] = "pro";
inline constexpr char kRecordKeyEid[] = "eid";
inline constexpr char kRecordKeyEidDesc[] = "eid_desc";
inline constexpr char kRecordKeyContent[] = "content";

// Record keys of the session information.
inline constexpr char kRecordKeyIver[] = "ive";
inline constexpr char kRecordKeyChannel[] = "cha";
inline constexpr char kRecordKeyRunSource[] = "rso";
inline constexpr char kRecordKeyChannelDesc[] = "channel_desc";
inline constexpr char kRecordKeyPassport[] = "pas";
inline constexpr char kRecordKeyTzuid[] = "tzuid";
inline constexpr char kRecordKeyRunSourceDesc[] = "rso_desc";
inline constexpr char kRecordKeyReferrer[] = "ref";
inline constexpr char kRecordKeyRefDesc[] = "ref_desc";
inline constexpr char kRecordKeyUver[] = "uve";
inline constexpr char kRecordKeyBrowserVersion[] = "bve";
inline constexpr char kRecordKeyLanguage[] = "lla";
inline constexpr char kRecordKeyOs[] = "os";
inline constexpr char kRecordKeyScreenColor[] = "sco";
inline constexpr char kRecordKeyScreenResolution[] = "sre";
inline constexpr char kRecordKeyMachine[] = "machine";
inline constexpr char kRecordKeyNetType[] = "net_type";
inline constexpr char kRecordKeySessionType[] = "session_type";
inline constexpr char kRecordKeyGame[] = "gam";
inline constexpr char kRecordKeyGameServer[] = "gse";
inline constexpr char kRecordKeyMpassport[] = "mpassport";
inline constexpr char kRecordKeyTraceId[] = "trace_id";

// Record keys of the info-data reports.
inline constexpr char kRecordKeyPid[] = "pid";
inline constexpr char kRecordKeyErrorCode[] = "error_code";
inline constexpr char kRecordKeySubErrorCode[] = "sub_error_code";
inline constexpr char kRecordKeyStep[] = "step";
inline constexpr char kRecordKeyIsNumerator[] = "is_numerator";
inline constexpr char kRecordKeyStepGroup[] = "step_group";
inline constexpr char kRecordKeyFla[] = "fla";
inline constexpr char kRecordKeyJav[] = "jav";
inline constexpr char kRecordKeyCoo[] = "coo";
inline constexpr char kRecordKeyNve[] = "nve";

// The action of event records, and of any record that names none.
inline constexpr char kEventAction[] = "zhwebevent";

// The path of signed records and lines: prefix, action, suffix.
inline constexpr char kGifPathPrefix[] = "/c.gif?act=";
inline constexpr char kGifPathSuffix[] = "&smkdata=0";

// Fields of a request target, with their separators: the action, the record id, the request
// key and time of the signature, the attempt number, the base64 flag, the library's version
// (with and without its separator) and the item.
inline constexpr char kFieldAct[] = "act=";
inline constexpr char kFieldRecordId[] = "&action=";
inline constexpr char kFieldKey[] = "&key=";
inline constexpr char kFieldTime[] = "&time=";
inline constexpr char kFieldAttempt[] = "EC=";
inline constexpr char kFieldBase64[] = "&enc=b64";
inline constexpr char kFieldSdkVersion[] = "&sdkver=";
inline constexpr char kFieldSdkVersionLead[] = "sdkver=";
inline constexpr char kFieldItem[] = "&item=";

}  // namespace wire
}  // namespace qzdata_report_kelvo
