#include "diagnostics/CrashCaptureEngine.h"

#include "diagnostics/CrashReport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QSysInfo>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <typeinfo>
#include <unistd.h>

// Everything below that runs in the dying process touches only static storage and async-signal-safe calls: the
// heap, locks and Qt may be what broke.
namespace {

constexpr int capturedSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int maxFrames = 128;
const char magicLine[] = "CorvelCrashReport 1\n";

char g_reportDirectory[4096];
char g_reportPath[4096];
char g_header[8192];
std::size_t g_headerLength = 0;
char g_exceptionType[512];
char g_exceptionMessage[4096];
std::atomic<bool> g_terminating{false};
std::atomic<bool> g_hasException{false};
std::atomic<pid_t> g_handlingThread{0};
std::atomic<bool> g_enabled{false};
std::terminate_handler g_previousTerminate = nullptr;
// Room for the handler and backtrace() when the thread's own stack is what overflowed.
alignas(16) char g_alternateStack[128 * 1024];

pid_t currentThreadId()
{
    return static_cast<pid_t>(::syscall(SYS_gettid));
}

void writeAll(int fd, const char* data, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, data, length);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        data += written;
        length -= static_cast<std::size_t>(written);
    }
}

void writeText(int fd, const char* text)
{
    writeAll(fd, text, std::strlen(text));
}

template <typename Integer>
void writeNumber(int fd, Integer value, int base = 10)
{
    char buffer[32];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value, base);
    writeAll(fd, buffer, static_cast<std::size_t>(result.ptr - buffer));
}

void writeAddress(int fd, const void* address)
{
    char digits[32];
    const std::to_chars_result result =
        std::to_chars(digits, digits + sizeof digits, reinterpret_cast<std::uintptr_t>(address), 16);
    const std::size_t length = static_cast<std::size_t>(result.ptr - digits);
    writeText(fd, "0x");
    for (std::size_t i = length; i < 2 * sizeof(void*); ++i) {
        writeText(fd, "0");
    }
    writeAll(fd, digits, length);
}

const char* signalName(int signal)
{
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    default:
        return "UNKNOWN";
    }
}

// The faulting address means something only for faults the kernel raised, not for a signal someone sent.
bool hasFaultAddress(int signal, const siginfo_t* info)
{
    return info && info->si_code > 0 && (signal == SIGSEGV || signal == SIGBUS || signal == SIGILL || signal == SIGFPE);
}

void writeReport(int fd, int signal, const siginfo_t* info)
{
    writeAll(fd, g_header, g_headerLength);

    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    writeText(fd, "Crash-Time: ");
    writeNumber(fd, static_cast<long long>(now.tv_sec));
    writeText(fd, "\n");

    const bool exception = g_hasException.load();
    writeText(fd, exception ? "Kind: exception\n" : g_terminating.load() ? "Kind: terminate\n" : "Kind: signal\n");
    writeText(fd, "Signal: ");
    writeNumber(fd, signal);
    writeText(fd, "\nSignal-Name: ");
    writeText(fd, signalName(signal));
    writeText(fd, "\nSignal-Code: ");
    writeNumber(fd, info ? info->si_code : 0);
    writeText(fd, "\n");
    if (hasFaultAddress(signal, info)) {
        writeText(fd, "Address: ");
        writeAddress(fd, info->si_addr);
        writeText(fd, "\n");
    }
    writeText(fd, "Thread: ");
    writeNumber(fd, currentThreadId());
    char threadName[17] = {};
    if (::prctl(PR_GET_NAME, threadName, 0, 0, 0) == 0) {
        writeText(fd, "\nThread-Name: ");
        writeText(fd, threadName);
    }
    writeText(fd, "\n");
    if (exception) {
        writeText(fd, "Exception-Type: ");
        writeText(fd, g_exceptionType);
        writeText(fd, "\nException-Message: ");
        writeText(fd, g_exceptionMessage);
        writeText(fd, "\n");
    }

    // The header is on disk before the walk of a possibly broken stack, so a fault in here still leaves it.
    writeText(fd, "Backtrace:\n");
    void* frames[maxFrames];
    const int count = ::backtrace(frames, maxFrames);
    ::backtrace_symbols_fd(frames, count, fd);
    writeText(fd, "End-Of-Report\n");
}

// mkdir -p, so that enabling capture leaves no trace on disk until there is something to report.
void makeReportDirectory()
{
    char path[sizeof g_reportDirectory];
    std::memcpy(path, g_reportDirectory, sizeof path);
    for (char* p = path + 1; *p != '\0'; ++p) {
        if (*p == '/') {
            *p = '\0';
            ::mkdir(path, 0700);
            *p = '/';
        }
    }
    ::mkdir(path, 0700);
}

void restoreDefaultAndRaise(int signal)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
    sigset_t unblock;
    sigemptyset(&unblock);
    sigaddset(&unblock, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &unblock, nullptr);
    ::raise(signal);
}

void handleSignal(int signal, siginfo_t* info, void*)
{
    const pid_t self = currentThreadId();
    pid_t expected = 0;
    if (!g_handlingThread.compare_exchange_strong(expected, self)) {
        if (expected == self) {
            // The handler itself failed: end now rather than loop.
            restoreDefaultAndRaise(signal);
        }
        // Another thread is writing the report and will end the process.
        for (;;) {
            ::pause();
        }
    }
    makeReportDirectory();
    const int fd = ::open(g_reportPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd >= 0) {
        writeReport(fd, signal, info);
        ::fsync(fd);
        ::close(fd);
    }
    restoreDefaultAndRaise(signal);
}

void copyText(char* target, std::size_t capacity, const char* text)
{
    std::size_t i = 0;
    for (; text && text[i] != '\0' && i + 1 < capacity; ++i) {
        // One field per line in the raw report.
        target[i] = (text[i] == '\n' || text[i] == '\r') ? ' ' : text[i];
    }
    target[i] = '\0';
}

// Runs before the abort that follows, while the heap still works: remembers what escaped, the SIGABRT handler
// writes it.
void handleTerminate()
{
    g_terminating = true;
    if (const std::exception_ptr current = std::current_exception()) {
        const std::type_info* type = abi::__cxa_current_exception_type();
        int status = -1;
        char* demangled = type ? abi::__cxa_demangle(type->name(), nullptr, nullptr, &status) : nullptr;
        copyText(g_exceptionType, sizeof g_exceptionType,
                 status == 0 && demangled ? demangled : (type ? type->name() : "unknown"));
        std::free(demangled);
        try {
            std::rethrow_exception(current);
        } catch (const std::exception& e) {
            copyText(g_exceptionMessage, sizeof g_exceptionMessage, e.what());
        } catch (...) {
            copyText(g_exceptionMessage, sizeof g_exceptionMessage, "");
        }
        g_hasException = true;
    }
    if (g_previousTerminate) {
        g_previousTerminate();
    }
    std::abort();
}

QByteArray singleLine(const QString& text)
{
    QByteArray bytes = text.toUtf8();
    bytes.replace('\n', ' ').replace('\r', ' ');
    return bytes;
}

QByteArray headerFor(const CrashCaptureEngine::Identity& identity)
{
    QByteArray header = magicLine;
    const auto add = [&header](const char* key, const QByteArray& value) {
        header += key;
        header += ": ";
        header += value;
        header += '\n';
    };
    add("Process", singleLine(identity.processName));
    add("PID", QByteArray::number(static_cast<qint64>(::getpid())));
    add("Main-Thread", QByteArray::number(static_cast<qint64>(currentThreadId())));
    add("Version", singleLine(identity.version));
    add("Build", singleLine(identity.build));
    add("OS", singleLine(QStringLiteral("%1 (%2 %3)")
                             .arg(QSysInfo::prettyProductName(), QSysInfo::kernelType(), QSysInfo::kernelVersion())));
    add("Architecture", singleLine(QSysInfo::currentCpuArchitecture()));
    add("Launch-Time", QByteArray::number(QDateTime::currentSecsSinceEpoch()));
    return header;
}

} // namespace

CrashCaptureEngine::CrashCaptureEngine(QString directory)
    : m_directory(std::move(directory))
{}

QString CrashCaptureEngine::defaultDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/Crash Reports");
}

QString CrashCaptureEngine::pendingReportPath() const
{
    return m_directory + QStringLiteral("/pending.crash");
}

Result<void> CrashCaptureEngine::enable(const Identity& identity)
{
    const QString domain = CrashReport::errorDomain;
    if (!QDir::isAbsolutePath(m_directory)) {
        return Error(domain, CrashReport::folderUnavailable,
                     QStringLiteral("The crash report folder \"%1\" is not an absolute path").arg(m_directory));
    }
    const QByteArray directory = QFile::encodeName(QDir::cleanPath(m_directory));
    const QByteArray path = QFile::encodeName(pendingReportPath());
    const QByteArray header = headerFor(identity);
    if (static_cast<std::size_t>(path.size()) >= sizeof g_reportPath ||
        static_cast<std::size_t>(header.size()) > sizeof g_header) {
        return Error(domain, CrashReport::pathTooLong, QStringLiteral("The crash report folder's path is too long"));
    }

    // The first backtrace() loads the unwinder, which must not happen for the first time in a signal handler.
    void* warmUp[4];
    ::backtrace(warmUp, 4);

    std::memcpy(g_reportDirectory, directory.constData(), static_cast<std::size_t>(directory.size()));
    g_reportDirectory[directory.size()] = '\0';
    std::memcpy(g_reportPath, path.constData(), static_cast<std::size_t>(path.size()));
    g_reportPath[path.size()] = '\0';
    std::memcpy(g_header, header.constData(), static_cast<std::size_t>(header.size()));
    g_headerLength = static_cast<std::size_t>(header.size());

    stack_t stack{};
    stack.ss_sp = g_alternateStack;
    stack.ss_size = sizeof g_alternateStack;
    ::sigaltstack(&stack, nullptr);

    for (const int signal : capturedSignals) {
        struct sigaction action {};
        action.sa_sigaction = handleSignal;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        ::sigaction(signal, &action, nullptr);
    }
    if (!g_enabled.exchange(true)) {
        g_previousTerminate = std::set_terminate(handleTerminate);
    }
    return {};
}

bool CrashCaptureEngine::isEnabled()
{
    return g_enabled;
}

bool CrashCaptureEngine::hasPendingCrashReport() const
{
    return QFileInfo(pendingReportPath()).isFile();
}

Result<QByteArray> CrashCaptureEngine::loadPendingCrashReportData() const
{
    // Larger than any report this engine writes; a file this big is not one of ours.
    constexpr qint64 limit = 4 * 1024 * 1024;
    QFile file(pendingReportPath());
    if (!file.open(QIODevice::ReadOnly)) {
        return Error(CrashReport::errorDomain, CrashReport::unreadable,
                     QStringLiteral("Cannot read the pending crash report: %1").arg(file.errorString()));
    }
    return file.read(limit);
}

Result<void> CrashCaptureEngine::purgePendingCrashReport() const
{
    QFile file(pendingReportPath());
    if (file.exists() && !file.remove()) {
        return Error(CrashReport::errorDomain, CrashReport::notRemovable,
                     QStringLiteral("Cannot remove the pending crash report: %1").arg(file.errorString()));
    }
    return {};
}
