// The tests' one temporary directory: a new empty directory under /tmp,
// removed with everything in it when the object goes. Made with kEnter, it
// is also the working directory meanwhile (installations, containers and
// the client all work relative to it).
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace vt_test {

// A new empty directory under /tmp whose name starts with tag; empty when
// it could not be made.
inline std::string makeTempDir(const std::string& tag) {
    std::string pattern = "/tmp/" + tag + "-XXXXXX";
    char* made = mkdtemp(&pattern[0]);
    return made ? std::string(made) : std::string();
}

// Removes a directory made by makeTempDir, with everything in it.
inline void removeTree(const std::string& path) {
    if (!path.empty()) std::system(("rm -rf '" + path + "'").c_str());
}

// makeTempDir and removeTree as a scope.
class TempDir {
public:
    enum Mode { kStay, kEnter };

    explicit TempDir(const std::string& tag, Mode mode = kStay) : _path(makeTempDir(tag)) {
        if (mode == kEnter && !_path.empty()) {
            char cwd[4096];
            _previous = getcwd(cwd, sizeof cwd) ? cwd : ".";
            if (chdir(_path.c_str()) != 0) _previous.clear();
        }
    }
    ~TempDir() {
        if (!_previous.empty() && chdir(_previous.c_str()) != 0) std::abort();
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
    std::string _previous;
};

}  // namespace vt_test
