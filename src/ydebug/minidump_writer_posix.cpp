// The minidump writer for Linux, run by the crash handler inside a signal handler.
//
// The process has just faulted, possibly inside malloc with the allocator's lock held, possibly
// with its heap in ruins. So the writer allocates nothing, takes no lock and calls no library
// function that might: it reads what it needs from /proc/self with read(2) into memory that
// prepare() reserved at registration, and writes the file with write(2) and pwrite(2), straight
// from the process's memory where the dump holds memory. It reads the process's own memory (ELF
// headers and notes) through process_vm_readv(2) on itself, which fails with EFAULT where a plain
// read would raise SIGBUS (a mapped file that has shrunk), and falls back to a plain read only
// where that call is forbidden by a sandbox.
//
// The file follows the published minidump layout, with the Linux streams that debuggers expect
// of a Linux dump: the maps, status, command line and auxiliary vector as raw copies, and a code
// view record per module that carries the GNU build id, by which a debugger finds the binary.
// Only the crashing thread is in the thread list: the registers of the others could only be had
// by stopping them with ptrace from a second process.
#include "minidump_writer_p.h"

#include "yunix_p.h"

#include <cerrno>
#include <cstring>

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace YMinidump {
namespace {

const size_t MAPS_TEXT_CAPACITY = 1 << 20;
const int MAX_MAPPINGS = 8192;
const int MAX_MODULES = 2048;
const int MAX_MEMORY_RANGES = 4096;
const int MAX_NAME_UTF16 = 4096;
const int MAX_BUILD_ID = 64;

// What the dump holds of memory besides the stack: bounded, so that a dump stays writable in the
// few seconds a dying service is given.
const uint64_t STACK_LIMIT = 1 << 20;
const uint64_t RED_ZONE = 128;
const uint64_t DATA_SEGMENT_LIMIT = 16 << 20;
const uint64_t DATA_TOTAL_LIMIT = 256 << 20;
const uint64_t STACK_SEARCH_ABOVE = 64 << 10;

const int STREAM_COUNT = 11;

struct Mapping
{
    uint64_t start;
    uint64_t end;
    uint64_t offset;
    uint64_t inode;
    const char* path; // into the maps text, not terminated
    int pathLength;
    bool readable;
    bool writable;
    bool executable;
    bool shared;
};

struct ModuleRecord
{
    uint64_t base;
    uint64_t end;
    int firstMapping;
    int lastMapping;
    uint32_t nameRva;
    LocationDescriptor cvRecord;
};

struct MemoryRange
{
    uint64_t start;
    uint64_t size;
    uint32_t rva;
};

// Reserved by prepare(), used only by the one thread that writes a dump.
struct Scratch
{
    char mapsText[MAPS_TEXT_CAPACITY];
    size_t mapsLength;
    Mapping mappings[MAX_MAPPINGS];
    int mappingCount;
    ModuleRecord modules[MAX_MODULES];
    int moduleCount;
    MemoryRange ranges[MAX_MEMORY_RANGES];
    int rangeCount;
    uint16_t name[MAX_NAME_UTF16 + 1];
    char copyBuffer[16384];
};

Scratch* g_scratch = nullptr;
SystemInfo g_systemInfo;
uint16_t g_csdVersion[256];
uint32_t g_csdVersionLength = 0; // in UTF-16 units

// ---------------------------------------------------------------------------------------------
// The output file

struct Output
{
    int fd;
    uint32_t position;
    int error;

    bool failed() const { return error != 0; }

    void append(const void* data, size_t size)
    {
        const char* p = static_cast<const char*>(data);
        while (size > 0 && !error) {
            ssize_t n;
            Y_EINTR_LOOP(n, ::write(fd, p, size));
            if (n < 0) {
                error = errno;
            } else if (n == 0) {
                error = EIO;
            } else {
                p += n;
                size -= size_t(n);
                position += uint32_t(n);
            }
        }
    }

    void appendZeros(size_t size)
    {
        static const char zeros[256] = {};
        while (size > 0 && !error) {
            const size_t chunk = size < sizeof zeros ? size : sizeof zeros;
            append(zeros, chunk);
            size -= chunk;
        }
    }

    void align(uint32_t alignment)
    {
        const uint32_t rest = position % alignment;
        if (rest)
            appendZeros(alignment - rest);
    }

    // Memory of this process; a part the kernel can't read becomes zeros, so that the layout
    // stays what the descriptors say.
    void appendMemory(uint64_t address, uint64_t size)
    {
        while (size > 0 && !error) {
            ssize_t n;
            // The system call itself, not the library's wrapper: these bytes are read as they
            // lie, and a checking build's interposed write() would object to reading a buffer
            // that the program never handed over.
            Y_EINTR_LOOP(n, ssize_t(::syscall(SYS_write, fd, address, size_t(size))));
            if (n < 0 && errno == EFAULT) {
                const uint64_t page = 4096 - (address % 4096);
                const uint64_t chunk = page < size ? page : size;
                appendZeros(size_t(chunk));
                address += chunk;
                size -= chunk;
            } else if (n <= 0) {
                error = n < 0 ? errno : EIO;
            } else {
                address += uint64_t(n);
                size -= uint64_t(n);
                position += uint32_t(n);
            }
        }
    }

    void writeAt(uint32_t offset, const void* data, size_t size)
    {
        const char* p = static_cast<const char*>(data);
        while (size > 0 && !error) {
            ssize_t n;
            Y_EINTR_LOOP(n, ::pwrite(fd, p, size, off_t(offset)));
            if (n <= 0) {
                error = n < 0 ? errno : EIO;
            } else {
                p += n;
                size -= size_t(n);
                offset += uint32_t(n);
            }
        }
    }

    /// Copies a whole file, typically under /proc, to the end of the dump.
    LocationDescriptor appendFile(const char* path, char* buffer, size_t bufferSize)
    {
        align(4);
        LocationDescriptor location = {0, position};
        int in;
        Y_EINTR_LOOP(in, ::open(path, O_RDONLY | O_CLOEXEC));
        if (in < 0)
            return location;
        for (;;) {
            ssize_t n;
            Y_EINTR_LOOP(n, ::read(in, buffer, bufferSize));
            if (n <= 0)
                break;
            append(buffer, size_t(n));
            if (error)
                break;
            location.dataSize += uint32_t(n);
        }
        ::close(in);
        return location;
    }
};

// ---------------------------------------------------------------------------------------------
// Reading the process itself

bool readOwnMemory(void* destination, uint64_t address, size_t size)
{
    struct iovec local = {destination, size};
    struct iovec remote = {reinterpret_cast<void*>(address), size};
    const ssize_t n = ::syscall(SYS_process_vm_readv, ::getpid(), &local, 1UL, &remote, 1UL, 0UL);
    if (n == ssize_t(size))
        return true;
    if (n < 0 && (errno == EPERM || errno == ENOSYS)) {
        // A sandbox forbids the call; the maps said this range is readable.
        memcpy(destination, reinterpret_cast<const void*>(address), size);
        return true;
    }
    return false;
}

uint64_t parseHex(const char*& p, const char* end)
{
    uint64_t value = 0;
    for (; p < end; ++p) {
        const char c = *p;
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            break;
        value = value * 16 + uint64_t(digit);
    }
    return value;
}

uint64_t parseDecimal(const char*& p, const char* end)
{
    uint64_t value = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p)
        value = value * 10 + uint64_t(*p - '0');
    return value;
}

void skipBlanks(const char*& p, const char* end)
{
    while (p < end && *p == ' ')
        ++p;
}

void skipField(const char*& p, const char* end)
{
    while (p < end && *p != ' ' && *p != '\n')
        ++p;
}

// One line of /proc/self/maps: "start-end perms offset dev inode   path".
bool parseMapping(const char* p, const char* end, Mapping* mapping)
{
    mapping->start = parseHex(p, end);
    if (p >= end || *p != '-')
        return false;
    ++p;
    mapping->end = parseHex(p, end);
    skipBlanks(p, end);
    if (end - p < 4)
        return false;
    mapping->readable = p[0] == 'r';
    mapping->writable = p[1] == 'w';
    mapping->executable = p[2] == 'x';
    mapping->shared = p[3] == 's';
    skipField(p, end);
    skipBlanks(p, end);
    mapping->offset = parseHex(p, end);
    skipBlanks(p, end);
    skipField(p, end); // device
    skipBlanks(p, end);
    mapping->inode = parseDecimal(p, end);
    skipBlanks(p, end);
    mapping->path = p;
    mapping->pathLength = int(end - p);
    return mapping->end > mapping->start;
}

void readMaps(Scratch* s)
{
    s->mapsLength = 0;
    s->mappingCount = 0;
    int fd;
    Y_EINTR_LOOP(fd, ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    if (fd < 0)
        return;
    while (s->mapsLength < MAPS_TEXT_CAPACITY) {
        ssize_t n;
        Y_EINTR_LOOP(
            n, ::read(fd, s->mapsText + s->mapsLength, MAPS_TEXT_CAPACITY - s->mapsLength));
        if (n <= 0)
            break;
        s->mapsLength += size_t(n);
    }
    ::close(fd);
    // A text too long for the buffer keeps its whole lines only.
    while (s->mapsLength > 0 && s->mapsText[s->mapsLength - 1] != '\n')
        --s->mapsLength;

    const char* line = s->mapsText;
    const char* textEnd = s->mapsText + s->mapsLength;
    while (line < textEnd && s->mappingCount < MAX_MAPPINGS) {
        const char* lineEnd = static_cast<const char*>(memchr(line, '\n', size_t(textEnd - line)));
        if (!lineEnd)
            lineEnd = textEnd;
        if (parseMapping(line, lineEnd, &s->mappings[s->mappingCount]))
            ++s->mappingCount;
        line = lineEnd + 1;
    }
}

const Mapping* findMapping(const Scratch* s, uint64_t address)
{
    for (int i = 0; i < s->mappingCount; ++i) {
        if (address >= s->mappings[i].start && address < s->mappings[i].end)
            return &s->mappings[i];
    }
    return nullptr;
}

// True when every byte of the range lies in readable mappings.
bool isReadable(const Scratch* s, uint64_t address, uint64_t size)
{
    while (size > 0) {
        const Mapping* m = findMapping(s, address);
        if (!m || !m->readable)
            return false;
        const uint64_t inMapping = m->end - address;
        if (inMapping >= size)
            return true;
        address += inMapping;
        size -= inMapping;
    }
    return true;
}

bool samePath(const Mapping& a, const Mapping& b)
{
    return a.inode == b.inode && a.pathLength == b.pathLength
        && memcmp(a.path, b.path, size_t(a.pathLength)) == 0;
}

bool isElfImage(const Scratch* s, const Mapping& m)
{
    if (m.offset != 0 || !m.readable || m.pathLength == 0 || m.path[0] != '/' || m.inode == 0)
        return false;
    unsigned char magic[SELFMAG];
    return isReadable(s, m.start, SELFMAG) && readOwnMemory(magic, m.start, SELFMAG)
        && memcmp(magic, ELFMAG, SELFMAG) == 0;
}

// Finds the modules: each ELF file mapped from offset 0, with the mappings of the same file that
// follow it.
void findModules(Scratch* s)
{
    s->moduleCount = 0;
    for (int i = 0; i < s->mappingCount && s->moduleCount < MAX_MODULES; ++i) {
        if (!isElfImage(s, s->mappings[i]))
            continue;
        ModuleRecord& module = s->modules[s->moduleCount++];
        module.base = s->mappings[i].start;
        module.end = s->mappings[i].end;
        module.firstMapping = i;
        module.lastMapping = i;
        for (int j = i + 1; j < s->mappingCount; ++j) {
            if (!samePath(s->mappings[i], s->mappings[j]) || s->mappings[j].offset == 0)
                break;
            module.end = s->mappings[j].end;
            module.lastMapping = j;
        }
        i = module.lastMapping;
    }
}

// The GNU build id from the module's notes, read in the process's memory.
int readBuildId(const Scratch* s, const ModuleRecord& module, uint8_t* id)
{
    Elf64_Ehdr header;
    if (!isReadable(s, module.base, sizeof header)
        || !readOwnMemory(&header, module.base, sizeof header)
        || header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_phentsize != sizeof(Elf64_Phdr))
        return 0;
    const uint64_t phdrs = module.base + header.e_phoff;
    // The load bias: where the segment that holds file offset 0 was put.
    uint64_t bias = module.base;
    bool haveLoad = false;
    for (int i = 0; i < header.e_phnum && !haveLoad; ++i) {
        Elf64_Phdr ph;
        const uint64_t at = phdrs + uint64_t(i) * sizeof ph;
        if (!isReadable(s, at, sizeof ph) || !readOwnMemory(&ph, at, sizeof ph))
            return 0;
        if (ph.p_type == PT_LOAD) {
            bias = module.base - (ph.p_vaddr - ph.p_offset);
            haveLoad = true;
        }
    }
    for (int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr ph;
        const uint64_t at = phdrs + uint64_t(i) * sizeof ph;
        if (!readOwnMemory(&ph, at, sizeof ph) || ph.p_type != PT_NOTE)
            continue;
        uint64_t note = bias + ph.p_vaddr;
        const uint64_t notesEnd = note + ph.p_filesz;
        if (!isReadable(s, note, ph.p_filesz))
            continue;
        while (note + sizeof(Elf64_Nhdr) <= notesEnd) {
            Elf64_Nhdr nh;
            if (!readOwnMemory(&nh, note, sizeof nh))
                break;
            const uint64_t name = note + sizeof nh;
            const uint64_t desc = name + ((uint64_t(nh.n_namesz) + 3) & ~uint64_t(3));
            const uint64_t next = desc + ((uint64_t(nh.n_descsz) + 3) & ~uint64_t(3));
            if (next > notesEnd)
                break;
            char owner[4];
            if (nh.n_type == NT_GNU_BUILD_ID && nh.n_namesz == 4 && nh.n_descsz > 0
                && nh.n_descsz <= MAX_BUILD_ID && readOwnMemory(owner, name, 4)
                && memcmp(owner, "GNU", 4) == 0 && readOwnMemory(id, desc, nh.n_descsz))
                return int(nh.n_descsz);
            note = next;
        }
    }
    return 0;
}

// A minidump string: its length in bytes, the UTF-16 text and a terminating zero.
uint32_t appendString(Output& out, uint16_t* buffer, const char* utf8, int length)
{
    int units = 0;
    for (int i = 0; i < length && units < MAX_NAME_UTF16 - 1;) {
        const unsigned char c = static_cast<unsigned char>(utf8[i]);
        uint32_t code = 0xfffd;
        int extra = 0;
        if (c < 0x80) {
            code = c;
        } else if ((c & 0xe0) == 0xc0) {
            code = c & 0x1f;
            extra = 1;
        } else if ((c & 0xf0) == 0xe0) {
            code = c & 0x0f;
            extra = 2;
        } else if ((c & 0xf8) == 0xf0) {
            code = c & 0x07;
            extra = 3;
        }
        ++i;
        for (int k = 0; k < extra; ++k, ++i) {
            if (i >= length || (static_cast<unsigned char>(utf8[i]) & 0xc0) != 0x80) {
                code = 0xfffd;
                break;
            }
            code = (code << 6) | (static_cast<unsigned char>(utf8[i]) & 0x3f);
        }
        if (code >= 0x10000 && code <= 0x10ffff) {
            code -= 0x10000;
            buffer[units++] = uint16_t(0xd800 + (code >> 10));
            buffer[units++] = uint16_t(0xdc00 + (code & 0x3ff));
        } else {
            buffer[units++] = uint16_t(code > 0xffff ? 0xfffd : code);
        }
    }
    buffer[units] = 0;
    out.align(4);
    const uint32_t rva = out.position;
    const uint32_t bytes = uint32_t(units) * 2;
    out.append(&bytes, sizeof bytes);
    out.append(buffer, size_t(units + 1) * 2);
    return rva;
}

uint32_t protectionOf(const Mapping& m)
{
    if (!m.readable && !m.writable && !m.executable)
        return PAGE_NOACCESS;
    if (m.executable) {
        if (m.writable)
            return m.shared ? PAGE_EXECUTE_READWRITE : PAGE_EXECUTE_WRITECOPY;
        return m.readable ? PAGE_EXECUTE_READ : PAGE_EXECUTE;
    }
    if (m.writable)
        return m.shared ? PAGE_READWRITE : PAGE_WRITECOPY;
    return PAGE_READONLY;
}

void addRange(Scratch* s, uint64_t start, uint64_t end)
{
    if (end <= start || s->rangeCount >= MAX_MEMORY_RANGES)
        return;
    s->ranges[s->rangeCount].start = start;
    s->ranges[s->rangeCount].size = end - start;
    s->ranges[s->rangeCount].rva = 0;
    ++s->rangeCount;
}

// The stack of the crashing thread from just below its stack pointer (the red zone) upwards. A
// stack pointer in the guard page, after an overflow, takes the stack mapping just above it.
void addStackRange(Scratch* s, uint64_t sp)
{
    uint64_t start = (sp > RED_ZONE ? sp - RED_ZONE : 0) & ~uint64_t(15);
    const Mapping* m = findMapping(s, sp);
    if (!m || !m->readable) {
        m = nullptr;
        for (int i = 0; i < s->mappingCount; ++i) {
            const Mapping& c = s->mappings[i];
            if (c.readable && c.start > sp && c.start - sp <= STACK_SEARCH_ABOVE) {
                m = &c;
                break;
            }
        }
        if (!m)
            return;
        start = m->start;
    }
    if (start < m->start)
        start = m->start;
    uint64_t end = m->end;
    if (end - start > STACK_LIMIT)
        end = start + STACK_LIMIT;
    addRange(s, start, end);
}

// The modules' writable data, with the anonymous mapping right behind a module, which is where
// its zero-initialised data lives.
void addDataRanges(Scratch* s)
{
    uint64_t total = 0;
    for (int k = 0; k < s->moduleCount; ++k) {
        const ModuleRecord& module = s->modules[k];
        for (int i = module.firstMapping; i <= module.lastMapping + 1 && i < s->mappingCount; ++i) {
            const Mapping& m = s->mappings[i];
            if (!m.readable || !m.writable)
                continue;
            if (i > module.lastMapping && (m.pathLength != 0 || m.start != s->mappings[i - 1].end))
                continue;
            uint64_t size = m.end - m.start;
            if (size > DATA_SEGMENT_LIMIT)
                size = DATA_SEGMENT_LIMIT;
            if (total + size > DATA_TOTAL_LIMIT)
                return;
            total += size;
            addRange(s, m.start, m.start + size);
        }
    }
}

void fillContext(ContextAmd64* context, const ucontext_t* uc)
{
    memset(context, 0, sizeof *context);
#if defined(__x86_64__)
    const greg_t* g = uc->uc_mcontext.gregs;
    context->contextFlags = CONTEXT_AMD64_CONTROL | CONTEXT_AMD64_INTEGER | CONTEXT_AMD64_SEGMENTS
        | CONTEXT_AMD64_FLOATING_POINT;
    context->rax = uint64_t(g[REG_RAX]);
    context->rcx = uint64_t(g[REG_RCX]);
    context->rdx = uint64_t(g[REG_RDX]);
    context->rbx = uint64_t(g[REG_RBX]);
    context->rsp = uint64_t(g[REG_RSP]);
    context->rbp = uint64_t(g[REG_RBP]);
    context->rsi = uint64_t(g[REG_RSI]);
    context->rdi = uint64_t(g[REG_RDI]);
    context->r8 = uint64_t(g[REG_R8]);
    context->r9 = uint64_t(g[REG_R9]);
    context->r10 = uint64_t(g[REG_R10]);
    context->r11 = uint64_t(g[REG_R11]);
    context->r12 = uint64_t(g[REG_R12]);
    context->r13 = uint64_t(g[REG_R13]);
    context->r14 = uint64_t(g[REG_R14]);
    context->r15 = uint64_t(g[REG_R15]);
    context->rip = uint64_t(g[REG_RIP]);
    context->eFlags = uint32_t(g[REG_EFL]);
    // cs, gs, fs and, where the kernel says so, ss, in 16 bits each.
    const uint64_t segments = uint64_t(g[REG_CSGSFS]);
    context->segCs = uint16_t(segments);
    context->segGs = uint16_t(segments >> 16);
    context->segFs = uint16_t(segments >> 32);
    context->segSs = (uc->uc_flags & 0x2) ? uint16_t(segments >> 48) : uint16_t(0x2b);
    if (uc->uc_mcontext.fpregs) {
        static_assert(sizeof(*uc->uc_mcontext.fpregs) == 512, "FXSAVE image");
        memcpy(context->fltSave, uc->uc_mcontext.fpregs, 512);
        context->mxCsr = uc->uc_mcontext.fpregs->mxcsr;
    }
#else
    (void)uc;
#endif
}

uint64_t stackPointerOf(const ucontext_t* uc)
{
#if defined(__x86_64__)
    return uint64_t(uc->uc_mcontext.gregs[REG_RSP]);
#else
    (void)uc;
    return 0;
#endif
}

uint64_t instructionPointerOf(const ucontext_t* uc)
{
#if defined(__x86_64__)
    return uint64_t(uc->uc_mcontext.gregs[REG_RIP]);
#else
    (void)uc;
    return 0;
#endif
}

void parseKernelVersion(const char* release, uint32_t* numbers)
{
    const char* p = release;
    const char* end = release + strlen(release);
    for (int i = 0; i < 3; ++i) {
        numbers[i] = uint32_t(parseDecimal(p, end));
        if (p < end && *p == '.')
            ++p;
        else
            break;
    }
}

} // namespace

bool prepare()
{
    if (g_scratch)
        return true;
    void* memory = mmap(nullptr, sizeof(Scratch), PROT_READ | PROT_WRITE,
        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return false;

    memset(&g_systemInfo, 0, sizeof g_systemInfo);
    g_systemInfo.processorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    g_systemInfo.platformId = PLATFORM_ID_LINUX;
    const long processors = sysconf(_SC_NPROCESSORS_CONF);
    g_systemInfo.numberOfProcessors = uint8_t(processors > 255 ? 255
            : processors < 1                                   ? 1
                                                               : processors);
#if defined(__x86_64__)
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(0, &eax, &ebx, &ecx, &edx)) {
        g_systemInfo.vendorId[0] = ebx;
        g_systemInfo.vendorId[1] = edx;
        g_systemInfo.vendorId[2] = ecx;
    }
    const bool amd = memcmp(g_systemInfo.vendorId, "AuthenticAMD", 12) == 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
        g_systemInfo.versionInformation = eax;
        g_systemInfo.featureInformation = edx;
        unsigned int family = (eax >> 8) & 0xf;
        unsigned int model = (eax >> 4) & 0xf;
        if (family == 0xf || family == 0x6)
            model |= ((eax >> 16) & 0xf) << 4;
        if (family == 0xf)
            family += (eax >> 20) & 0xff;
        g_systemInfo.processorLevel = uint16_t(family);
        g_systemInfo.processorRevision = uint16_t((model << 8) | (eax & 0xf));
    }
    if (amd && __get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx))
        g_systemInfo.amdExtendedCpuFeatures = edx;
#endif
    struct utsname names;
    if (uname(&names) == 0) {
        uint32_t version[3] = {0, 0, 0};
        parseKernelVersion(names.release, version);
        g_systemInfo.majorVersion = version[0];
        g_systemInfo.minorVersion = version[1];
        g_systemInfo.buildNumber = version[2];
        // The service pack text of the format holds the kernel's own description.
        const char* parts[4] = {names.sysname, names.release, names.version, names.machine};
        uint32_t n = 0;
        const uint32_t capacity = sizeof g_csdVersion / sizeof g_csdVersion[0] - 1;
        for (int i = 0; i < 4; ++i) {
            if (i > 0 && n < capacity)
                g_csdVersion[n++] = ' ';
            for (const char* c = parts[i]; *c && n < capacity; ++c)
                g_csdVersion[n++] = uint16_t(static_cast<unsigned char>(*c));
        }
        g_csdVersionLength = n;
    }
    g_scratch = static_cast<Scratch*>(memory);
    return true;
}

int write(int fd, const CrashInfo& crash)
{
    Scratch* s = g_scratch;
    if (!s)
        return ENOMEM;
    Output out = {fd, 0, 0};
    Directory directory[STREAM_COUNT];
    memset(directory, 0, sizeof directory);
    int streams = 0;
    auto addStream = [&](uint32_t type, LocationDescriptor location) {
        directory[streams].streamType = type;
        directory[streams].location = location;
        ++streams;
    };

    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    Header header = {SIGNATURE, VERSION, 0, uint32_t(sizeof(Header)), 0, uint32_t(now.tv_sec),
        1 /* with data segments */};
    out.append(&header, sizeof header);
    out.appendZeros(sizeof directory);

    readMaps(s);
    findModules(s);

    // System information, with its text behind it.
    {
        out.align(8);
        const uint32_t at = out.position;
        SystemInfo info = g_systemInfo;
        info.csdVersionRva = at + uint32_t(sizeof info);
        out.append(&info, sizeof info);
        const uint32_t bytes = g_csdVersionLength * 2;
        const uint16_t zero = 0;
        out.append(&bytes, sizeof bytes);
        out.append(g_csdVersion, bytes);
        out.append(&zero, sizeof zero);
        addStream(SYSTEM_INFO_STREAM, {uint32_t(sizeof info), at});
    }

    {
        out.align(4);
        MiscInfo misc
            = {uint32_t(sizeof(MiscInfo)), MISC1_PROCESS_ID, uint32_t(::getpid()), 0, 0, 0};
        addStream(MISC_INFO_STREAM, {uint32_t(sizeof misc), out.position});
        out.append(&misc, sizeof misc);
    }

    // The crashing thread's registers.
    LocationDescriptor contextLocation = {0, 0};
    if (crash.context) {
        out.align(16);
        ContextAmd64 context;
        fillContext(&context, crash.context);
        contextLocation = {uint32_t(sizeof context), out.position};
        out.append(&context, sizeof context);
    }

    // Memory: the stack first, then the modules' data.
    s->rangeCount = 0;
    if (crash.context)
        addStackRange(s, stackPointerOf(crash.context));
    const bool haveStack = s->rangeCount > 0;
    addDataRanges(s);
    for (int i = 0; i < s->rangeCount; ++i) {
        out.align(16);
        s->ranges[i].rva = out.position;
        out.appendMemory(s->ranges[i].start, s->ranges[i].size);
    }

    {
        out.align(4);
        const uint32_t at = out.position;
        const uint32_t count = 1;
        Thread thread;
        memset(&thread, 0, sizeof thread);
        thread.threadId = uint32_t(crash.threadId);
        if (haveStack) {
            thread.stack.startOfMemoryRange = s->ranges[0].start;
            thread.stack.memory = {uint32_t(s->ranges[0].size), s->ranges[0].rva};
        }
        thread.threadContext = contextLocation;
        out.append(&count, sizeof count);
        out.append(&thread, sizeof thread);
        addStream(THREAD_LIST_STREAM, {uint32_t(sizeof count + sizeof thread), at});
    }

    {
        out.align(8);
        ExceptionStream exception;
        memset(&exception, 0, sizeof exception);
        exception.threadId = uint32_t(crash.threadId);
        exception.exceptionRecord.exceptionCode = uint32_t(crash.signal);
        exception.exceptionRecord.exceptionFlags = uint32_t(crash.code);
        exception.exceptionRecord.exceptionAddress = crash.faultAddress;
        if (crash.context && crash.faultAddress == 0 && crash.code <= 0)
            exception.exceptionRecord.exceptionAddress = instructionPointerOf(crash.context);
        exception.threadContext = contextLocation;
        addStream(EXCEPTION_STREAM, {uint32_t(sizeof exception), out.position});
        out.append(&exception, sizeof exception);
    }

    {
        out.align(4);
        const uint32_t at = out.position;
        const uint32_t count = uint32_t(s->rangeCount);
        out.append(&count, sizeof count);
        for (int i = 0; i < s->rangeCount; ++i) {
            MemoryDescriptor d
                = {s->ranges[i].start, {uint32_t(s->ranges[i].size), s->ranges[i].rva}};
            out.append(&d, sizeof d);
        }
        addStream(
            MEMORY_LIST_STREAM, {uint32_t(sizeof count + sizeof(MemoryDescriptor) * count), at});
    }

    // Modules: names and code view records first, so that the list itself is one array.
    for (int k = 0; k < s->moduleCount && !out.failed(); ++k) {
        ModuleRecord& module = s->modules[k];
        const Mapping& first = s->mappings[module.firstMapping];
        module.nameRva = appendString(out, s->name, first.path, first.pathLength);
        uint8_t buildId[MAX_BUILD_ID];
        const int idLength = readBuildId(s, module, buildId);
        module.cvRecord = {0, 0};
        if (idLength > 0) {
            out.align(4);
            module.cvRecord = {uint32_t(4 + idLength), out.position};
            const uint32_t signature = CV_SIGNATURE_ELF_BUILD_ID;
            out.append(&signature, sizeof signature);
            out.append(buildId, size_t(idLength));
        }
    }
    {
        out.align(4);
        const uint32_t at = out.position;
        const uint32_t count = uint32_t(s->moduleCount);
        out.append(&count, sizeof count);
        for (int k = 0; k < s->moduleCount; ++k) {
            const ModuleRecord& record = s->modules[k];
            Module module;
            memset(&module, 0, sizeof module);
            module.baseOfImage = record.base;
            module.sizeOfImage = uint32_t(record.end - record.base);
            module.moduleNameRva = record.nameRva;
            module.versionInfo.signature = FIXED_FILE_INFO_SIGNATURE;
            module.versionInfo.strucVersion = 0x00010000;
            module.cvRecord = record.cvRecord;
            out.append(&module, sizeof module);
        }
        addStream(MODULE_LIST_STREAM, {uint32_t(sizeof count + sizeof(Module) * count), at});
    }

    {
        out.align(8);
        const uint32_t at = out.position;
        MemoryInfoListHeader list = {uint32_t(sizeof(MemoryInfoListHeader)),
            uint32_t(sizeof(MemoryInfo)), uint64_t(s->mappingCount)};
        out.append(&list, sizeof list);
        for (int i = 0; i < s->mappingCount; ++i) {
            const Mapping& m = s->mappings[i];
            MemoryInfo info;
            memset(&info, 0, sizeof info);
            info.baseAddress = m.start;
            info.allocationBase = m.start;
            info.regionSize = m.end - m.start;
            info.state = MEM_COMMIT;
            info.protect = protectionOf(m);
            info.allocationProtect = info.protect;
            info.type = m.inode != 0 ? (m.executable ? MEM_IMAGE : MEM_MAPPED) : MEM_PRIVATE;
            out.append(&info, sizeof info);
        }
        addStream(MEMORY_INFO_LIST_STREAM,
            {uint32_t(sizeof list + sizeof(MemoryInfo) * uint32_t(s->mappingCount)), at});
    }

    {
        out.align(4);
        const uint32_t at = out.position;
        out.append(s->mapsText, s->mapsLength);
        addStream(LINUX_MAPS_STREAM, {uint32_t(s->mapsLength), at});
    }
    addStream(LINUX_PROC_STATUS_STREAM,
        out.appendFile("/proc/self/status", s->copyBuffer, sizeof s->copyBuffer));
    addStream(LINUX_CMD_LINE_STREAM,
        out.appendFile("/proc/self/cmdline", s->copyBuffer, sizeof s->copyBuffer));
    addStream(
        LINUX_AUXV_STREAM, out.appendFile("/proc/self/auxv", s->copyBuffer, sizeof s->copyBuffer));

    // The directory and the header last: a dump cut short by a failure has no valid directory.
    header.numberOfStreams = uint32_t(streams);
    out.writeAt(sizeof header, directory, sizeof(Directory) * size_t(streams));
    out.writeAt(0, &header, sizeof header);
    return out.error;
}

} // namespace YMinidump
