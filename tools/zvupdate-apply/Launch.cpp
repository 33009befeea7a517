#include "Launch.h"

#include "ProgramWords.h"

#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds lookInterval(20);

bool isPipe(int stream)
{
    struct stat status = {};
    return fstat(stream, &status) == 0 && S_ISFIFO(status.st_mode);
}

// How a child is started: in a session of its own, and with the usual answers to signals.
class Spawning
{
public:
    explicit Spawning(const QByteArray &folder)
    {
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals = {};
        sigemptyset(&signals);
        for (const int signal : {SIGHUP, SIGPIPE})
            sigaddset(&signals, signal);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addchdir_np(&actions_, folder.constData());
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
            if (isPipe(stream))
                posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_WRONLY, 0);
        }
    }
    Spawning(const Spawning &) = delete;
    Spawning &operator=(const Spawning &) = delete;
    ~Spawning()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    int start(const ProgramWords &words, pid_t &child) const
    {
        return posix_spawn(&child, words.program(), &actions_, &attributes_, words.all(), environ);
    }

private:
    posix_spawnattr_t attributes_ = {};
    posix_spawn_file_actions_t actions_ = {};
};

} // namespace

Result<void> Launch::start(std::chrono::seconds probation) const
{
    const ProgramWords words(program, arguments);
    // The new version of a folder may lack the one that the host was in.
    const QString place = QFileInfo(folder).isDir() ? folder : QFileInfo(program).path();
    pid_t child = 0;
    if (const int error = Spawning(QFile::encodeName(place)).start(words, child); error != 0)
        return Failure{u"cannot be started: "_s + qt_error_string(error)};
    const auto deadline = Clock::now() + probation;
    while (Clock::now() < deadline) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child)
            return Failure{WIFSIGNALED(status)
                               ? u"was ended by signal %1"_s.arg(WTERMSIG(status))
                               : u"ended with exit status %1"_s.arg(WEXITSTATUS(status))};
        std::this_thread::sleep_for(lookInterval);
    }
    return {};
}
