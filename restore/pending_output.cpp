// PendingOutput: fresh file, trailer, then the rename into place.
#include "restore/pending_output.h"

#include <cerrno>

#include "restore/ffmpeg_compat.h"
#include "utils/file_safety.h"
#include "utils/utils.h"

namespace restore {

PendingOutput::PendingOutput(const char* path) : path_(path ? path : "") {}

PendingOutput::~PendingOutput() {
    Discard();
    if (context_) avformat_free_context(context_);
}

AVFormatContext* PendingOutput::CreateContext() {
    avformat_alloc_output_context2(&context_, nullptr, nullptr, path_.c_str());
    return context_;
}

int PendingOutput::Open() {
    if (context_->oformat->flags & AVFMT_NOFILE) return 0;
    temp_path_ = zp::create_file_beside(path_);
    if (temp_path_.empty()) return AVERROR(errno ? errno : EACCES);
    // "file:" makes FFmpeg take the rest as a plain path, whatever colons or bars it holds.
    return avio_open(&context_->pb, ("file:" + temp_path_).c_str(), AVIO_FLAG_WRITE);
}

int PendingOutput::Commit() {
    int ret = av_write_trailer(context_);
    if (context_->pb) {
        avio_flush(context_->pb);
        if (ret >= 0 && context_->pb->error < 0) ret = context_->pb->error;
        size_ = avio_size(context_->pb);
    }
    if (!(context_->oformat->flags & AVFMT_NOFILE)) {
        const int closed = avio_closep(&context_->pb);
        if (ret >= 0 && closed < 0) ret = closed;
    }
    if (ret < 0) return ret;
    if (!temp_path_.empty()) {
        if (!zp::replace_file(temp_path_.c_str(), path_.c_str()))
            return AVERROR(errno ? errno : EACCES);
        temp_path_.clear();
    }
    committed_ = true;
    return ret;
}

void PendingOutput::Discard() {
    CloseIo();
    if (!committed_ && !temp_path_.empty()) {
        zp::Utils::instance()->remove_file(temp_path_.c_str());
        temp_path_.clear();
    }
}

void PendingOutput::CloseIo() {
    if (context_ && context_->pb && !(context_->oformat->flags & AVFMT_NOFILE))
        avio_closep(&context_->pb);
}

}  // namespace restore
