// SPDX-License-Identifier: MIT
// The journal's directory: root's alone. It is created 0700 when absent and
// refused when it is a link, is not root's, or can be written by anyone else
// (the directory above it too, unless sticky); a journal file is refused on
// the same grounds. A directory another tool made 0755 (the fleet role stages
// its files below /var/lib/flashwright) is accepted. Files are replaced atomically: a private temporary name opened
// O_EXCL|O_NOFOLLOW, written, synced, renamed over the old name, and the
// directory synced, so a cut at any moment leaves the old file or the new
// one, never a mix.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

class JournalStore {
public:
    explicit JournalStore(std::string dir) : dir_(std::move(dir)) {}
    ~JournalStore();
    JournalStore(const JournalStore &) = delete;
    JournalStore &operator=(const JournalStore &) = delete;

    // Opens the directory, creating it when `create` and it is absent.
    // False with the reason; a directory that is absent and not created is
    // not an error, `present()` then answers false.
    bool open(bool create, std::string &why);
    [[nodiscard]] bool present() const { return fd_ >= 0; }

    // The file's bytes; nullopt when it does not exist (`why` empty) or is
    // refused or unreadable (`why` says why).
    std::optional<std::vector<uint8_t>> read(const std::string &name, std::string &why) const;
    bool write(const std::string &name, std::span<const uint8_t> bytes, std::string &why) const;
    // Removing a file that is not there succeeds.
    bool remove(const std::string &name, std::string &why) const;

private:
    std::string dir_;
    int fd_ = -1;
};
