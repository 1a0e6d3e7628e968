// A directory that exists as long as a test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace testing_support {

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "hmx-test-XXXXXX";
        path_ = ::mkdtemp(name.data());
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& path() const noexcept { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace testing_support
