#include "tools/fleet/export/ZstdFile.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

namespace NimaPost {

namespace {

la_ssize_t WritePacked(archive* /*packer*/, void* file, const void* bytes, std::size_t size) {
    return std::fwrite(bytes, 1, size, static_cast<std::FILE*>(file)) == size ? static_cast<la_ssize_t>(size)
                                                                              : -1;
}

/// What the stream of text calls.
ssize_t Pack(void* packer, const char* text, std::size_t size) {
    const la_ssize_t taken = archive_write_data(static_cast<archive*>(packer), text, size);
    return taken < 0 ? 0 : static_cast<ssize_t>(taken);
}

} // namespace

ZstdFile::ZstdFile(std::string path) : path_(std::move(path)) {
    file_ = std::fopen(path_.c_str(), "ae");
    if (file_ == nullptr) {
        Fail(errno);
    }
    packer_ = archive_write_new();
    try {
        Open();
    } catch (...) {
        archive_write_free(packer_);
        std::fclose(file_);
        throw;
    }
    std::setvbuf(stream_, nullptr, _IONBF, 0);
    out_ = std::make_unique<Output>(stream_);
}

void ZstdFile::Open() {
    // A file as such, without blocks that are filled up. A library without zstd would call another program.
    if (packer_ == nullptr || archive_write_add_filter_zstd(packer_) != ARCHIVE_OK ||
        archive_write_set_format_raw(packer_) != ARCHIVE_OK ||
        archive_write_set_bytes_in_last_block(packer_, 1) != ARCHIVE_OK ||
        archive_write_open(packer_, file_, nullptr, WritePacked, nullptr) != ARCHIVE_OK) {
        Fail(ENOTSUP);
    }
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                              archive_entry_free);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    if (archive_write_header(packer_, entry.get()) != ARCHIVE_OK) {
        Fail(ENOTSUP);
    }
    const cookie_io_functions_t functions{nullptr, Pack, nullptr, nullptr};
    stream_ = fopencookie(packer_, "w", functions);
    if (stream_ == nullptr) {
        Fail(errno);
    }
}

ZstdFile::~ZstdFile() {
    out_.reset();
    if (stream_ != nullptr) {
        std::fclose(stream_);
    }
    archive_write_free(packer_);
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

void ZstdFile::Finish() {
    errno = 0;
    bool fine = out_->Flush();
    fine = archive_write_close(packer_) == ARCHIVE_OK && fine;
    fine = std::fclose(std::exchange(file_, nullptr)) == 0 && fine;
    if (!fine) {
        Fail(errno != 0 ? errno : EIO);
    }
}

void ZstdFile::Fail(int error) const {
    throw std::system_error(error, std::generic_category(), path_);
}

} // namespace NimaPost
