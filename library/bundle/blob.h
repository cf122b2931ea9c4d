// Reading and copying the data blobs of a chart bundle in bounded chunks, so
// that memory stays the same whatever size an entry claims.
//
// Each operation maps the failure kinds to its own return codes.  When the
// source's length is passed, an entry running past the end of the file is a
// short read found before anything is allocated, read or written.
#ifndef TARNTERMCHART_BUNDLE_BLOB_H
#define TARNTERMCHART_BUNDLE_BLOB_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "platform/files.h"

enum BlobResult {
    kBlobDone = 0,
    kBlobNoMemory,    // the chunk buffer could not be allocated
    kBlobSeekFailed,  // the source could not be positioned at the blob
    kBlobShortRead,   // the source ended or failed before the blob did
    kBlobShortWrite,  // the destination (or sink) took less than it was given
};

// Largest chunk held in memory at once.
enum { kBlobChunk = 1 << 20 };

// Receives consecutive pieces of a blob; false stops the read (kBlobShortWrite).
using BlobSink = bool (*)(void *context, const unsigned char *data, size_t n);

// Reads size bytes at offset of in and hands them to sink in order.
// sourceLength is in's file length (StreamLength) or -1 when unknown.  Steps:
// range check, chunk allocation, seek, reads.  in is left after the bytes read.
BlobResult ReadBlob(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size,
                    BlobSink sink, void *context);

// Appends size bytes at offset of in to out at out's current position, which
// then lies just after them.  Between two plain files the kernel copies the
// bytes (copy_file_range); otherwise, or if it declines, they pass through a
// chunk buffer.  in's position afterwards is not defined: callers seek it
// for every blob.  On a short read nothing of the failing chunk is written.
BlobResult CopyBlob(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size, FILE *out);

// Whether CopyBlob would let the kernel copy between in and out: both plain
// files (and the copy not turned off for tests).
bool KernelCanCopy(FILE *in, FILE *out);
// CopyBlob for a caller that found KernelCanCopy true and knows out's
// position (at, as TellStream would give it), so that a blob costs the copy and
// the stream's repositioning only.  Afterwards out stands at at + size when
// kBlobDone was returned, anywhere otherwise.
BlobResult CopyBlobTo(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size, FILE *out, int64_t at);

// The failure of a positioned read (ReadFullyAt) that came back short with
// error: a source that cannot be read at a position (a pipe) fails as a
// seek would, anything else is a short read.
BlobResult PositionedReadFailure(int error);
// Hands size bytes at offset of the file open on fd to sink, read at their
// position in pieces of up to kBlobChunk bytes through buffer (that size).
// A piece that reads short reaches the sink not at all.
BlobResult ReadAtToSink(int fd, unsigned char *buffer, uint64_t offset, uint64_t size, BlobSink sink, void *context);

// Blobs appended one after another from in to out, gathered into runs: a
// blob that starts in the source where the run ends joins it, and each run
// goes over in one copy instead of one per blob.  A blob that runs past the
// end of the source first sends the run before it on its way and then fails
// on its own, so a failure leaves out as copying blob by blob would.
struct BlobRun {
    FILE *in;
    int64_t inLength;  // in's file length (StreamLength); blobs are checked against it
    FILE *out;
    uint64_t outAt;    // where the next blob added lands in out; the caller sets the start
    // When set, the bytes go to sink (ReadBlob) instead of being copied to
    // out, for writers that look at them on their way.
    BlobSink sink;
    void *context;
    uint64_t from, size;  // the run gathered and not yet copied
    // The chunk buffer of the sink's reads, allocated at the first and kept
    // for the rest: a run may be a single small blob, many thousand times.
    MallocPtr<unsigned char> buffer;
    // Whether runs go over by kernel copy: both plain files, out's start
    // known.  Found once, when the run is started.
    bool kernelCopy;
};

// A run that starts at out's current position.
BlobRun StartBlobRun(FILE *in, int64_t inLength, FILE *out, BlobSink sink = nullptr, void *context = nullptr);
// Adds the blob of size bytes at offset of in; its place in out is outAt
// before the call.  A failure reported here may belong to an earlier blob
// of the run.
BlobResult AddToBlobRun(BlobRun &run, uint32_t offset, uint32_t size);
// Copies what the run holds; called once after the last blob.
BlobResult FlushBlobRun(BlobRun &run);

// Lets tests turn the kernel copy off to check the chunked path between
// plain files.  Not for production use.
void BlobAllowKernelCopy(bool allowed);

#endif
