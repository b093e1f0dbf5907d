// Not part of the YovoLib API: the minidump file format and the writer that the crash handler
// runs inside a signal handler.
#ifndef YOVOLIB_MINIDUMP_WRITER_P_H
#define YOVOLIB_MINIDUMP_WRITER_P_H

#include <cstddef>
#include <cstdint>

#include <signal.h>
#include <sys/types.h>
#include <ucontext.h>

// The published minidump layout: little-endian, packed to four bytes, 64-bit fields where the
// format has them whatever the process's word size. Every structure is checked against its size
// below, because a debugger reads the file by these offsets and nothing else.
namespace YMinidump {

const uint32_t SIGNATURE = 0x504d444d; // "MDMP"
const uint32_t VERSION = 0xa793;

enum StreamType : uint32_t
{
    THREAD_LIST_STREAM = 3,
    MODULE_LIST_STREAM = 4,
    MEMORY_LIST_STREAM = 5,
    EXCEPTION_STREAM = 6,
    SYSTEM_INFO_STREAM = 7,
    MISC_INFO_STREAM = 15,
    MEMORY_INFO_LIST_STREAM = 16,
    // The Linux streams: raw copies of the process's files under /proc.
    LINUX_PROC_STATUS_STREAM = 0x47670004,
    LINUX_CMD_LINE_STREAM = 0x47670006,
    LINUX_AUXV_STREAM = 0x47670008,
    LINUX_MAPS_STREAM = 0x47670009
};

const uint16_t PROCESSOR_ARCHITECTURE_AMD64 = 9;
const uint32_t PLATFORM_ID_LINUX = 0x8201;
const uint32_t CV_SIGNATURE_ELF_BUILD_ID = 0x4270454c; // "BpEL": the GNU build id follows
const uint32_t FIXED_FILE_INFO_SIGNATURE = 0xfeef04bd;
const uint32_t MISC1_PROCESS_ID = 0x00000001;

const uint32_t CONTEXT_AMD64 = 0x00100000;
const uint32_t CONTEXT_AMD64_CONTROL = CONTEXT_AMD64 | 0x1;
const uint32_t CONTEXT_AMD64_INTEGER = CONTEXT_AMD64 | 0x2;
const uint32_t CONTEXT_AMD64_SEGMENTS = CONTEXT_AMD64 | 0x4;
const uint32_t CONTEXT_AMD64_FLOATING_POINT = CONTEXT_AMD64 | 0x8;

const uint32_t MEM_COMMIT = 0x1000;
const uint32_t MEM_IMAGE = 0x1000000;
const uint32_t MEM_MAPPED = 0x40000;
const uint32_t MEM_PRIVATE = 0x20000;
const uint32_t PAGE_NOACCESS = 0x01;
const uint32_t PAGE_READONLY = 0x02;
const uint32_t PAGE_READWRITE = 0x04;
const uint32_t PAGE_WRITECOPY = 0x08;
const uint32_t PAGE_EXECUTE = 0x10;
const uint32_t PAGE_EXECUTE_READ = 0x20;
const uint32_t PAGE_EXECUTE_READWRITE = 0x40;
const uint32_t PAGE_EXECUTE_WRITECOPY = 0x80;

#pragma pack(push, 4)

struct LocationDescriptor
{
    uint32_t dataSize;
    uint32_t rva;
};

struct Header
{
    uint32_t signature;
    uint32_t version;
    uint32_t numberOfStreams;
    uint32_t streamDirectoryRva;
    uint32_t checkSum;
    uint32_t timeDateStamp;
    uint64_t flags;
};

struct Directory
{
    uint32_t streamType;
    LocationDescriptor location;
};

struct MemoryDescriptor
{
    uint64_t startOfMemoryRange;
    LocationDescriptor memory;
};

struct Thread
{
    uint32_t threadId;
    uint32_t suspendCount;
    uint32_t priorityClass;
    uint32_t priority;
    uint64_t teb;
    MemoryDescriptor stack;
    LocationDescriptor threadContext;
};

struct FixedFileInfo
{
    uint32_t signature;
    uint32_t strucVersion;
    uint32_t fileVersionMS;
    uint32_t fileVersionLS;
    uint32_t productVersionMS;
    uint32_t productVersionLS;
    uint32_t fileFlagsMask;
    uint32_t fileFlags;
    uint32_t fileOS;
    uint32_t fileType;
    uint32_t fileSubtype;
    uint32_t fileDateMS;
    uint32_t fileDateLS;
};

struct Module
{
    uint64_t baseOfImage;
    uint32_t sizeOfImage;
    uint32_t checkSum;
    uint32_t timeDateStamp;
    uint32_t moduleNameRva;
    FixedFileInfo versionInfo;
    LocationDescriptor cvRecord;
    LocationDescriptor miscRecord;
    uint64_t reserved0;
    uint64_t reserved1;
};

struct ExceptionRecord
{
    uint32_t exceptionCode;
    uint32_t exceptionFlags;
    uint64_t exceptionRecord;
    uint64_t exceptionAddress;
    uint32_t numberParameters;
    uint32_t unusedAlignment;
    uint64_t exceptionInformation[15];
};

struct ExceptionStream
{
    uint32_t threadId;
    uint32_t alignment;
    ExceptionRecord exceptionRecord;
    LocationDescriptor threadContext;
};

struct SystemInfo
{
    uint16_t processorArchitecture;
    uint16_t processorLevel;
    uint16_t processorRevision;
    uint8_t numberOfProcessors;
    uint8_t productType;
    uint32_t majorVersion;
    uint32_t minorVersion;
    uint32_t buildNumber;
    uint32_t platformId;
    uint32_t csdVersionRva;
    uint16_t suiteMask;
    uint16_t reserved2;
    // The x86 form of the processor information.
    uint32_t vendorId[3];
    uint32_t versionInformation;
    uint32_t featureInformation;
    uint32_t amdExtendedCpuFeatures;
};

struct MiscInfo
{
    uint32_t sizeOfInfo;
    uint32_t flags1;
    uint32_t processId;
    uint32_t processCreateTime;
    uint32_t processUserTime;
    uint32_t processKernelTime;
};

struct MemoryInfoListHeader
{
    uint32_t sizeOfHeader;
    uint32_t sizeOfEntry;
    uint64_t numberOfEntries;
};

struct MemoryInfo
{
    uint64_t baseAddress;
    uint64_t allocationBase;
    uint32_t allocationProtect;
    uint32_t alignment1;
    uint64_t regionSize;
    uint32_t state;
    uint32_t protect;
    uint32_t type;
    uint32_t alignment2;
};

struct Uint128
{
    uint64_t low;
    uint64_t high;
};

// The AMD64 thread context.
struct ContextAmd64
{
    uint64_t p1Home, p2Home, p3Home, p4Home, p5Home, p6Home;
    uint32_t contextFlags;
    uint32_t mxCsr;
    uint16_t segCs, segDs, segEs, segFs, segGs, segSs;
    uint32_t eFlags;
    uint64_t dr0, dr1, dr2, dr3, dr6, dr7;
    uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    uint64_t rip;
    uint8_t fltSave[512]; // the FXSAVE image
    Uint128 vectorRegister[26];
    uint64_t vectorControl;
    uint64_t debugControl;
    uint64_t lastBranchToRip;
    uint64_t lastBranchFromRip;
    uint64_t lastExceptionToRip;
    uint64_t lastExceptionFromRip;
};

#pragma pack(pop)

static_assert(sizeof(Header) == 32, "minidump header");
static_assert(sizeof(Directory) == 12, "minidump directory");
static_assert(sizeof(MemoryDescriptor) == 16, "minidump memory descriptor");
static_assert(sizeof(Thread) == 48, "minidump thread");
static_assert(sizeof(FixedFileInfo) == 52, "fixed file info");
static_assert(sizeof(Module) == 108, "minidump module");
static_assert(sizeof(ExceptionStream) == 168, "minidump exception stream");
static_assert(sizeof(SystemInfo) == 56, "minidump system info");
static_assert(sizeof(MiscInfo) == 24, "minidump misc info");
static_assert(sizeof(MemoryInfoListHeader) == 16, "minidump memory info list");
static_assert(sizeof(MemoryInfo) == 48, "minidump memory info");
static_assert(offsetof(ContextAmd64, contextFlags) == 0x30, "context flags");
static_assert(offsetof(ContextAmd64, rax) == 0x78, "context rax");
static_assert(offsetof(ContextAmd64, rip) == 0xf8, "context rip");
static_assert(offsetof(ContextAmd64, fltSave) == 0x100, "context fxsave");
static_assert(sizeof(ContextAmd64) == 1232, "AMD64 context");

/// What the signal handler knows about the fault.
struct CrashInfo
{
    int signal;
    int code;
    uint64_t faultAddress;
    pid_t threadId;
    const ucontext_t* context; // may be null: the dump then has no registers
};

/// Gathers at registration what may not be gathered inside a signal handler: the processor and
/// system description, and scratch memory for reading the process's maps. Not async-signal-safe;
/// a second call does nothing. Returns false when the scratch memory can't be had.
bool prepare();

/// Writes a whole dump to fd, which must be open for writing at offset 0. Async-signal-safe: no
/// allocation, no lock, only system calls. Returns 0 or the errno of the first failed write.
int write(int fd, const CrashInfo& crash);

} // namespace YMinidump

#endif // YOVOLIB_MINIDUMP_WRITER_P_H
