// The undo record of a chart bundle: what applying updates in place will
// overwrite, saved beside the bundle before the first write into it, so
// that the bundle can be put back exactly as it was - after an apply that
// failed, after a merge that failed or was stopped, and after a process
// that died half-way through a write.
//
// An apply writes only from the bundle's Table Offset on (the new blobs go
// over the old table, the new table after them) and the 27 header bytes;
// every later apply writes further on still.  So the bundle's length, its
// header and the bytes from its Table Offset to its end describe what it
// was before any number of applies.  A bundle that did not exist, and took
// an update's place by renaming, is recorded as that update (its name and
// its own state): putting it back renames it to the update's name again.
//
// The record is the file "<bundle>.undo" ("charts.bin.undo"); its name ends
// in no update bundle's suffix and holds no "NEW.db".  Layout, little-endian:
//
//   8  "TARNUNDO"
//   4  version, 1
//   4  flags: bit 0 set when the bundle existed
//   4  n, the length of the update's name (0 when the bundle existed)
//   n  the update's name in the bundle's directory, no terminator
//   8  the bundle's length
//   4  h, how many header bytes were there (27, or fewer for a bundle
//      shorter than its header)
//   27 the header bytes (zeros past h)
//   8  where the saved bytes start in the bundle (its Table Offset, or its
//      length when that lies past the end)
//   8  how many bytes follow
//   .. the bytes
//   4  the Tarn checksum of everything above
#ifndef TARNTERMCHART_BUNDLE_UNDO_H
#define TARNTERMCHART_BUNDLE_UNDO_H

#include <string>

#define TARN_UNDO_SUFFIX ".undo"

// The record's path: the bundle's path with ".undo" appended.
std::string UndoRecordPath(const char *bundlePath);

// Saves the record of bundlePath as it stands now and makes it durable
// (the record and its directory entry flushed, with flushing on).  With
// fromUpdate, the bundle does not exist yet: the record is of that update
// (a path in the bundle's directory), which is about to take the bundle's
// name.  False when the record cannot be written whole: nothing may then
// be written into the bundle.
bool SaveUndoRecord(const char *bundlePath, const char *fromUpdate = nullptr);

enum UndoResult {
    kUndoNone = 0,      // there was no record
    kUndoRestored,      // the bundle is as the record says; the record is gone
    kUndoDamaged,       // the record cannot be read or fails its checksum: left alone
    kUndoWriteFailed,   // the bundle could not be put back: the record stays
};
// Puts the bundle back as its record says, flushes it, then removes the
// record.  Running it again after it was cut short does the same.
UndoResult RestoreFromUndoRecord(const char *bundlePath);
// Removes the record (once what it guarded is final).
void RemoveUndoRecord(const char *bundlePath);
// Whether a record (or a temporary of one) stands beside the bundle.
bool HasUndoRecord(const char *bundlePath);

#endif
