// The tests' one temporary directory: a new empty directory in the system's
// temporary folder, removed with everything in it when the object goes.
// Made with kEnter, it is also the working directory meanwhile
// (installations, containers and the client all work relative to it).
// Portable: the tests also run as Windows programs under Wine.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "foundation/platform/Platform.h"

namespace vt_test {

// A new empty directory whose name starts with tag; empty when it could
// not be made.
inline std::string makeTempDir(const std::string& tag) {
    std::string made;
    return vtMakeTemporaryDirectory(tag.c_str(), &made) ? made : std::string();
}

// Removes a directory made by makeTempDir, with everything in it.
inline void removeTree(const std::string& path) {
    std::error_code error;
    if (!path.empty()) std::filesystem::remove_all(path, error);
}

// makeTempDir and removeTree as a scope.
class TempDir {
public:
    enum Mode { kStay, kEnter };

    explicit TempDir(const std::string& tag, Mode mode = kStay) : _path(makeTempDir(tag)) {
        std::error_code error;
        if (mode == kEnter && !_path.empty()) {
            _previous = std::filesystem::current_path(error);
            if (!error) std::filesystem::current_path(_path, error);
            if (error) _previous.clear();
        }
    }
    ~TempDir() {
        std::error_code error;
        if (!_previous.empty()) std::filesystem::current_path(_previous, error);
        removeTree(_path);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Empty when the directory could not be made.
    const std::string& path() const { return _path; }
    // A path inside the directory.
    std::string operator/(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
    std::filesystem::path _previous;
};

}  // namespace vt_test
