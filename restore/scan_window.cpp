// ScanWindow: forward reads in large blocks, the unread rest of the window kept.
#include "restore/scan_window.h"

#include <algorithm>
#include <cstring>

#include "utils/file_offset.h"
#include "utils/utils.h"

namespace restore {

ScanWindow::~ScanWindow() {
    if (file_) fclose(file_);
}

bool ScanWindow::Open(const char* path) {
    file_ = zp::Utils::instance()->open_file(path, "rb");
    if (!file_ || zp::file_seek(file_, 0, SEEK_END) != 0) return false;
    size_ = zp::file_tell(file_);
    file_pos_ = -1;
    return size_ >= 0;
}

bool ScanWindow::Load(int64_t pos, size_t count) {
    const int64_t end = base_ + static_cast<int64_t>(filled_);
    if (pos >= base_ && pos <= end && pos - base_ > 0) {
        // Keep what is still ahead; read on after it.
        const size_t keep = static_cast<size_t>(end - pos);
        memmove(buffer_.data(), buffer_.data() + (pos - base_), keep);
        base_ = pos;
        filled_ = keep;
    } else if (!(pos >= base_ && pos <= end)) {
        base_ = pos;
        filled_ = 0;
    }
    const int64_t want_from = base_ + static_cast<int64_t>(filled_);
    if (file_pos_ != want_from) {
        if (zp::file_seek(file_, want_from, SEEK_SET) != 0) return false;
        file_pos_ = want_from;
    }
    // Read the whole free space: fewer, larger reads.
    const size_t got = fread(buffer_.data() + filled_, 1, buffer_.size() - filled_, file_);
    filled_ += got;
    file_pos_ += static_cast<int64_t>(got);
    (void)count;
    return true;
}

// A small read for a position far from the window, which the window does not follow: a
// candidate sample's length pointing anywhere must not cost a window's worth of reading.
const uint8_t* ScanWindow::Probe(int64_t pos, size_t count, size_t* got) {
    probe_.resize(std::min(count, kProbeBytes));
    if (zp::file_seek(file_, pos, SEEK_SET) != 0) return nullptr;
    file_pos_ = -1;
    *got = fread(probe_.data(), 1, probe_.size(), file_);
    return *got > 0 ? probe_.data() : nullptr;
}

const uint8_t* ScanWindow::At(int64_t pos, size_t count, size_t* got) {
    *got = 0;
    if (pos < 0 || pos >= size_) return nullptr;
    count = std::min(count, buffer_.size());
    const int64_t avail_end = std::min<int64_t>(size_, pos + static_cast<int64_t>(count));
    const bool inside = pos >= base_ && avail_end <= base_ + static_cast<int64_t>(filled_);
    const int64_t reach = base_ + static_cast<int64_t>(buffer_.size());
    if (!inside && filled_ > 0 && count <= kProbeBytes && (pos < base_ || pos >= reach))
        return Probe(pos, count, got);
    if (!inside && !Load(pos, count)) return nullptr;
    if (pos < base_) return nullptr;
    const int64_t have = base_ + static_cast<int64_t>(filled_) - pos;
    *got = static_cast<size_t>(std::min<int64_t>(have, avail_end - pos));
    return buffer_.data() + (pos - base_);
}

}  // namespace restore
