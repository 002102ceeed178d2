// SPDX-License-Identifier: MIT
// Test support: run a real binary, capture its exact output and status.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace fwtest {

struct RunResult {
    int status = -1;  // exit status, or 128 + signal number
    std::string out;  // every byte written to standard output
    std::string err;  // every byte written to standard error
};

struct RunOptions {
    std::string cwd;                       // empty: inherit
    std::vector<std::string> env;          // "NAME=value" added to (or replacing in) the environment
    std::vector<std::string> unset_env;    // names removed from the environment
    std::optional<uid_t> uid;              // drop to this uid (and gid) before exec
    std::string stdin_data;                // fed to standard input, then closed
    int timeout_seconds = 300;             // the child is killed after this long
};

RunResult run(const std::vector<std::string> &argv, const RunOptions &opts = {});

// A scratch directory removed with everything in it when the object dies.
class TempDir {
public:
    explicit TempDir(const std::string &prefix = "fwtest");
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &data, mode_t mode = 0644);
bool file_exists(const std::string &path);

// `vxemu run --host DIR/host.json --state DIR/state -- COMMAND...` started
// in DIR, without the library's trace switch of the caller's environment.
RunResult run_in_vxemu(const TempDir &dir, const std::vector<std::string> &command, int timeout_seconds = 120);

// How many times `needle` starts in `text`, overlapping ones included.
int count_of(const std::string &text, const std::string &needle);

// Paths of the build tree and the source tree.
std::string bin_path(const std::string &name);  // build/bin/<name>
std::string source_path(const std::string &relative);

}  // namespace fwtest
