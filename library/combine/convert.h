// Converting VFR records into the IFR layout field by field.  The field
// names of a mapping are looked up once for a pair of tables; each record
// then copies by position.
#ifndef TARNTERMCHART_COMBINE_CONVERT_H
#define TARNTERMCHART_COMBINE_CONVERT_H

#include "dbf/dbf.h"

// A mapping row: the VFR field's name and the IFR field it is copied into.
using FieldNames = const char *const[2];

class FieldMap {
public:
    enum { kMaxFields = 32 };
    // Looks up count rows of names in vfr and ifr (at most kMaxFields).
    FieldMap(const FieldNames *names, int count, DBFFile *vfr, DBFFile *ifr);
    // Copies every mapped field of vfr's current record into ifr's record,
    // in the order of the rows.
    void Copy(DBFFile *vfr, DBFFile *ifr) const;

private:
    struct Pair {
        int vfr, ifr;
    };
    Pair pairs_[kMaxFields];
    int count_;
};

// Copies one field by position: a field vfr lacks (-1) is stored blank, one
// ifr lacks is not stored.
void CopyFieldByPos(DBFFile *vfr, int vfrField, DBFFile *ifr, int ifrField);

#endif
