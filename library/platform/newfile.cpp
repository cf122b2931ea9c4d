#include "platform/newfile.h"

#include <unistd.h>

#include "platform/platform.h"
#include "platform/removal.h"

namespace {

thread_local NewFileBatch *openBatch = nullptr;

}  // namespace

NewFileBatch::NewFileBatch() : outer_(openBatch) { openBatch = this; }

NewFileBatch::~NewFileBatch()
{
    for (int fd : descriptors_) close(fd);
    openBatch = outer_;
}

bool NewFileBatch::Flush()
{
    bool flushed = !failed_;
    for (int fd : descriptors_) {
        flushed &= FlushDescriptor(fd);
        close(fd);
    }
    descriptors_.clear();
    return flushed;
}

FILE *NewFile::Create(const std::string &finalPath, bool largeBuffer)
{
    Discard();
    batch_ = openBatch;
    final_ = finalPath;
    temporary_ = batch_ ? finalPath : finalPath + TARN_TEMPORARY_SUFFIX;
    failed_ = false;
    finished_ = false;
    // A final name held by a directory could never be taken: the file
    // cannot be created, as opening it for writing would have said.
    if (KindOf(final_.c_str()) == kPathDirectory) return nullptr;
    // A temporary left by a run that was stopped is no one's file.
    RemoveName(temporary_.c_str());
    stream_ = CreateNewFile(temporary_.c_str());
    if (stream_ && largeBuffer) buffer_ = GiveLargeBuffer(stream_);
    return stream_;
}

FILE *NewFile::Create(const char *directory, const char *name, bool largeBuffer)
{
    PathPtr path = JoinPath(directory, name);
    if (!path) {
        Discard();
        return nullptr;
    }
    return Create(std::string(path.get()), largeBuffer);
}

bool NewFile::UseBuffer(size_t bytes)
{
    if (!stream_) return false;
    MallocPtr<char> buffer((char *)malloc(bytes));
    if (!buffer || setvbuf(stream_, buffer.get(), _IOFBF, bytes) != 0) return false;
    buffer_ = std::move(buffer);
    return true;
}

bool NewFile::Finish()
{
    if (finished_) return true;
    if (!stream_) return false;
    bool whole = !Failed() && fflush(stream_) == 0 && !ferror(stream_);
    if (whole && batch_) {
        // Flushed with the rest of its batch; its descriptor is kept for that,
        // and its writing out starts now.
        const int kept = dup(DescriptorOf(stream_));
        if (kept >= 0) {
            batch_->descriptors_.push_back(kept);
            StartWritingOut(kept);
        } else {
            whole = false;
        }
    } else if (whole) {
        whole = FlushDescriptor(DescriptorOf(stream_));
    }
    whole &= fclose(stream_) == 0;
    stream_ = nullptr;
    buffer_.reset();
    if (!whole) {
        RemoveName(temporary_.c_str());
        return false;
    }
    finished_ = true;
    return true;
}

bool NewFile::Commit()
{
    if (!Finish()) return false;
    finished_ = false;
    if (batch_) return true;  // already under its name
    if (ReplaceName(temporary_.c_str(), final_.c_str())) return true;
    RemoveName(temporary_.c_str());
    return false;
}

void NewFile::Discard()
{
    if (stream_) fclose(stream_);
    const bool left = stream_ || finished_;
    stream_ = nullptr;
    finished_ = false;
    buffer_.reset();
    if (left) RemoveName(temporary_.c_str());
}

void RemoveTemporaryOf(const char *directory, const char *name)
{
    PathPtr path = JoinPath(directory, name);
    if (!path) return;
    std::string temporary = std::string(path.get()) + TARN_TEMPORARY_SUFFIX;
    RemoveName(temporary.c_str());
}
