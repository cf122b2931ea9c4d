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

// Lets tests turn the kernel copy off to check the chunked path between
// plain files.  Not for production use.
void BlobAllowKernelCopy(bool allowed);

#endif
