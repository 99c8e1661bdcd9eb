#pragma once

#include <string>

#include <archive.h>
#include <archive_entry.h>

#include <gtest/gtest.h>

namespace Nima::Testing {

/// An archive in a file, or a compressed file.
class Packed {
  public:
    Packed(const std::string& path, int format, int filter, const char* options = nullptr)
        : archive_(archive_write_new()) {
        EXPECT_EQ(archive_write_set_format(archive_, format), ARCHIVE_OK) << path;
        EXPECT_EQ(archive_write_add_filter(archive_, filter), ARCHIVE_OK) << path;
        if (options != nullptr) {
            archive_write_set_passphrase(archive_, "secret");
            EXPECT_EQ(archive_write_set_options(archive_, options), ARCHIVE_OK) << options;
        }
        EXPECT_EQ(archive_write_open_filename(archive_, path.c_str()), ARCHIVE_OK) << path;
    }
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;
    ~Packed() {
        archive_write_close(archive_);
        archive_write_free(archive_);
    }

    Packed& Add(const std::string& name, const std::string& content, long seconds = 1'795'500'000) {
        return Entry(name, AE_IFREG, content, seconds, nullptr);
    }
    Packed& Link(const std::string& name, const char* target, bool hard = false) {
        return Entry(name, hard ? AE_IFREG : AE_IFLNK, "", 0, target);
    }
    Packed& Special(const std::string& name, unsigned type) { return Entry(name, type, "", 0, nullptr); }

  private:
    Packed& Entry(const std::string& name, unsigned type, const std::string& content, long seconds,
                  const char* link) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_filetype(entry, type);
        archive_entry_set_perm(entry, 0644);
        archive_entry_set_mtime(entry, seconds, 0);
        archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
        if (link != nullptr) {
            (type == AE_IFREG ? archive_entry_set_hardlink : archive_entry_set_symlink)(entry, link);
        }
        // A name that is no text is warned about.
        EXPECT_GE(archive_write_header(archive_, entry), ARCHIVE_WARN) << name;
        if (!content.empty()) {
            archive_write_data(archive_, content.data(), content.size());
        }
        archive_entry_free(entry);
        return *this;
    }

    archive* archive_;
};

} // namespace Nima::Testing
