#pragma once

/// The texts by which readers find their way in what the library writes.

namespace Nima::Catalogue {

/// The SysTrace block begins with these four characters, without a zero.
inline constexpr char kSysTraceMagic[] = "strc";

// ---- Text logs, doc/text-log.md: "<counter> <0x<thread>:<priority>> <<level>> <<tracer>> <message>" ----

inline constexpr char kThreadMark[] = " <0x";
inline constexpr char kPriorityMark = ':';
inline constexpr char kHeaderEnd[] = "> ";
inline constexpr char kLevelBegin = '<';
/// Between level and tracer.
inline constexpr char kLevelEnd[] = "> <";
inline constexpr char kTracerEnd[] = "> ";
/// Takes the place of a level.
inline constexpr char kCalibrationLevel[] = "CAL";
/// Comes before the date of a calibration line.
inline constexpr char kCalibrationDate[] = "now=";
/// Comes before the name of the timer, with which a calibration line ends.
inline constexpr char kCalibrationType[] = ", type=";

// ---- The head of ring dumps and crash logs: "<title> Date/Time: <date>", "Ticks: <counter>" ----

inline constexpr char kRingDumpTitle[] = "Current";
inline constexpr char kCrashLogTitle[] = "Crash";
inline constexpr char kHeadDate[] = " Date/Time: ";
inline constexpr char kHeadTicks[] = "Ticks: ";
inline constexpr char kHeadFrequency[] = "Frequency: ";

// ---- Ring dumps, doc/rings.md ----

inline constexpr char kRingDumpBegin[] = "BEGIN RING BUFFER DUMP";
inline constexpr char kRingDumpEnd[] = "END RING BUFFER DUMP";
/// Around a ring's name or index.
inline constexpr char kRingHeadingBegin[] = "######## Ring Buffer ";
inline constexpr char kRingHeadingEnd[] = " ########";

// ---- Crash logs, doc/crash-log.md: the sections in their order, the fields of the first ----

inline constexpr char kModulesSection[] = "Loaded Modules";
inline constexpr char kCallStacksSection[] = "Call Stacks";
inline constexpr char kRingsSection[] = "Ring Buffers (unformatted)";
inline constexpr char kCrashLogEnd[] = "All Done!!";

inline constexpr char kErrorCode[] = "Error Code";
inline constexpr char kFaultAddress[] = "Fault Addr";
inline constexpr char kCrashType[] = "Crash Type";
inline constexpr char kExceptionCode[] = "Excpt Code";
inline constexpr char kFileName[] = "File Name";
inline constexpr char kLineNumber[] = "Line Numbr";
inline constexpr char kBootCycle[] = "Boot Cycle";
inline constexpr char kExtraData[] = "Extra Data";

inline constexpr char kExceptionRecordBegin[] = "BEGIN EXCEPTION RECORD";
inline constexpr char kExceptionRecord[] = "Exception Record:";
inline constexpr char kExceptionRecordEnd[] = "END EXCEPTION RECORD";
/// Begins the line that takes the place of a section if writing it failed.
inline constexpr char kFaultInCrashLog[] = "Fault";

// ---- Stack-trace files, doc/stack-trace.md ----

/// After a frame's address: a function in parentheses, or this.
inline constexpr char kFrameFunction[] = " (";
inline constexpr char kFrameWithoutName[] = " -- error: unable to obtain symbol name for this frame";
/// In the first line of a host's own report.
inline constexpr char kReportMessage[] = ": Message: [";
/// In the second, before the code.
inline constexpr char kReportCode[] = ": Code: ";
/// The third and the fourth begin with this unit, and the fourth ends with the text below it.
inline constexpr char kReportUnit[] = "crashHandler/crashHandler";
inline constexpr char kReportCallStack[] = ": Callstack:";

} // namespace Nima::Catalogue
