#include "replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "failure.h"

namespace vqns_tool {
namespace {

enum { kMostTemporaries = 4 };

// What a signal handler may read: fixed places, each in use or not.
char temporaries[kMostTemporaries][PATH_MAX];
volatile std::sig_atomic_t in_use[kMostTemporaries];

void remove_and_die(int signal) {
    for (int i = 0; i < kMostTemporaries; ++i) {
        if (in_use[i] != 0) unlink(temporaries[i]);
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

void watch_signals() {
    static bool watching = false;
    if (watching) return;
    watching = true;
    for (const int signal : kSignals) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;  // as under nohup
        action.sa_handler = remove_and_die;
        sigaction(signal, &action, nullptr);
    }
}

void remember(const std::string& path) {
    watch_signals();
    for (int i = 0; i < kMostTemporaries; ++i) {
        if (in_use[i] != 0 || path.size() >= PATH_MAX) continue;
        std::memcpy(temporaries[i], path.c_str(), path.size() + 1);
        in_use[i] = 1;
        return;
    }
}

void forget(const std::string& path) {
    for (int i = 0; i < kMostTemporaries; ++i) {
        if (in_use[i] != 0 && path == temporaries[i]) in_use[i] = 0;
    }
}

// mkstemp, and remember what it made before a signal can come.
int make_temporary(std::string& pattern) {
    sigset_t held, before;
    sigemptyset(&held);
    for (const int signal : kSignals) sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &before);
    const int descriptor = mkstemp(pattern.data());
    const int error = errno;
    if (descriptor >= 0) remember(pattern);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return descriptor;
}

// The file that a name stands for, which need not be there: absolute, and through all links.
std::string resolved(const std::string& name) {
    enum { kMostLinks = 40 };
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path path = fs::absolute(name, error);
    for (int links = 0; links < kMostLinks && fs::is_symlink(path, error); ++links) {
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    path = fs::weakly_canonical(path, error);
    return error ? name : path.string();
}

// Owner, where that is allowed, and permissions of the file that it replaces, or those of any new file.
void dress_as(int descriptor, const struct stat* replaced) {
    if (replaced == nullptr) {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(descriptor, 0666 & ~mask);
        return;
    }
    const bool same_owner = fchown(descriptor, replaced->st_uid, replaced->st_gid) == 0;
    fchmod(descriptor, replaced->st_mode & (same_owner ? 07777 : 0777));
}

}  // namespace

ReplacedFile::~ReplacedFile() {
    if (descriptor >= 0) close(descriptor);
    if (temporary.empty()) return;
    unlink(temporary.c_str());
    forget(temporary);
}

void open_replaced(ReplacedFile& file, const std::string& name) {
    file.name = name;
    struct stat there = {};
    const bool exists = stat(name.c_str(), &there) == 0;
    if (!exists && errno == ELOOP) fail(name, system_reason(errno));
    if (exists && S_ISDIR(there.st_mode)) fail(name, "is a directory");
    if (exists && access(name.c_str(), W_OK) != 0) fail(name, system_reason(errno));
    if (exists && !S_ISREG(there.st_mode)) {
        // By this name: what the links of /dev/stdout lead to has none where it is a pipe.
        file.descriptor = open(name.c_str(), S_ISFIFO(there.st_mode) ? O_WRONLY : O_RDWR);
        if (file.descriptor < 0) fail(name, system_reason(errno));
        return;
    }
    file.place = resolved(name);
    std::string pattern = (std::filesystem::path(file.place).parent_path() / ".vqns-XXXXXX").string();
    file.descriptor = make_temporary(pattern);
    if (file.descriptor < 0) fail(name, system_reason(errno));
    file.temporary = pattern;
    dress_as(file.descriptor, exists ? &there : nullptr);
}

int release_descriptor(ReplacedFile& file) {
    const int descriptor = file.descriptor;
    file.descriptor = -1;
    return descriptor;
}

void write_bytes(ReplacedFile& file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = write(file.descriptor, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(file.name, system_reason(errno));
        bytes.remove_prefix(static_cast<size_t>(n));
    }
}

void commit(ReplacedFile& file) {
    if (file.descriptor >= 0 && close(release_descriptor(file)) != 0) {
        fail(file.name, system_reason(errno));
    }
    if (file.temporary.empty()) return;
    if (rename(file.temporary.c_str(), file.place.c_str()) != 0) fail(file.name, system_reason(errno));
    forget(file.temporary);
    file.temporary.clear();
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat of_a = {}, of_b = {};
    if (stat(a.c_str(), &of_a) == 0 && stat(b.c_str(), &of_b) == 0) {
        const bool regular = S_ISREG(of_a.st_mode);
        return regular && of_a.st_dev == of_b.st_dev && of_a.st_ino == of_b.st_ino;
    }
    return resolved(a) == resolved(b);
}

}  // namespace vqns_tool
