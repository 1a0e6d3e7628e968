// Redirects standard error (or another descriptor) into a pipe while a test wants it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace support {

// Thread: one at a time.
class Redirect {
public:
    explicit Redirect(int descriptor) : descriptor_{descriptor} {
        std::fflush(nullptr);
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader_ = ends[0];
        saved_ = dup(descriptor);
        EXPECT_EQ(dup2(ends[1], descriptor), descriptor);
        close(ends[1]);
    }
    ~Redirect() {
        std::fflush(nullptr);
        dup2(saved_, descriptor_);
        close(saved_);
        close(reader_);
    }
    Redirect(const Redirect&) = delete;
    Redirect& operator=(const Redirect&) = delete;

    // What has been written and not yet been taken; does not wait.
    std::string take() {
        std::string text;
        char buffer[4096];
        pollfd ready{reader_, POLLIN, 0};
        while (poll(&ready, 1, 0) == 1) {
            const ssize_t size = read(reader_, buffer, sizeof buffer);
            if (size <= 0) break;
            text.append(buffer, static_cast<std::size_t>(size));
        }
        return text;
    }

    // Fills the pipe completely, as if its reader were stuck.
    void fill() {
        fcntl(descriptor_, F_SETPIPE_SZ, 4096);
        const std::string page(4096, '.');
        pollfd ready{descriptor_, POLLOUT, 0};
        while (poll(&ready, 1, 0) == 1) {
            if (write(descriptor_, page.data(), page.size()) <= 0) break;
        }
    }

private:
    int descriptor_;
    int reader_ = -1;
    int saved_ = -1;
};

}  // namespace support
