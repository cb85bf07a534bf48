#include "common/instance_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/root_path.h"

namespace {

// The locked descriptor, kept open for the life of the process: a record
// lock ends when its process closes any descriptor of the file, so nothing
// else in the daemon opens it. Only the main thread touches it, at start-up.
int lock_fd = -1;

int open_lock_file(const char* path)
{
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY;
    int fd = open(path, flags, 0644);
    if (fd < 0 && errno == ENOENT) {
        // A fresh $TACTORD_ROOT sandbox has no var/run yet (a device always
        // has it): make the one missing level and try again.
        char dir[ROOT_PATH_MAX];
        std::snprintf(dir, sizeof dir, "%s", path);
        if (char* slash = std::strrchr(dir, '/'); slash != nullptr && slash != dir) {
            *slash = '\0';
            if (mkdir(dir, 0755) == 0 || errno == EEXIST)
                fd = open(path, flags, 0644);
        }
    }
    return fd;
}

// The pid the holder wrote into the file, 0 when there is none.
pid_t written_pid(int fd)
{
    char text[16] = {};
    if (pread(fd, text, sizeof text - 1, 0) <= 0)
        return 0;
    const long pid = std::strtol(text, nullptr, 10);
    return pid > 0 ? static_cast<pid_t>(pid) : 0;
}

}  // namespace

int take_instance_lock(pid_t* holder)
{
    if (lock_fd >= 0)
        return 0;
    root_path_buf buf;
    const int fd = open_lock_file(resolve_path(INSTANCE_LOCK_PATH, buf));
    if (fd < 0)
        return -1;
    flock whole{};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;  // start 0, length 0: the whole file
    pid_t owner = 0;
    // A holder that ends between the two calls below leaves the lock free:
    // try again (a few times, then report it as held).
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (fcntl(fd, F_SETLK, &whole) == 0) {
            char text[16];
            const int len = std::snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
            // The pid is for people and for a holder in another pid
            // namespace; the lock itself is what counts.
            if (ftruncate(fd, 0) != 0 || pwrite(fd, text, static_cast<std::size_t>(len), 0) != len)
                std::fprintf(stderr, "tactord: cannot write its pid into the lock file: %s\n", std::strerror(errno));
            lock_fd = fd;
            return 0;
        }
        const int err = errno;
        if (err != EACCES && err != EAGAIN) {
            close(fd);
            errno = err;
            return -1;
        }
        flock who = whole;
        if (fcntl(fd, F_GETLK, &who) == 0 && who.l_type == F_UNLCK)
            continue;
        owner = who.l_pid;
        break;
    }
    // The kernel names the holder; the file's text stands in when the
    // holder's pid means nothing here.
    if (holder != nullptr)
        *holder = owner > 0 ? owner : written_pid(fd);
    close(fd);
    return 1;
}
