#include "combine/convert.h"

#include "combine/combine.h"

FieldMap::FieldMap(const FieldNames *names, int count, DBFFile *vfr, DBFFile *ifr)
    : count_(count < kMaxFields ? count : kMaxFields)
{
    for (int i = 0; i < count_; i++)
        pairs_[i] = {DBFFile_GetFieldNumber(vfr, names[i][0]), DBFFile_GetFieldNumber(ifr, names[i][1])};
}

void FieldMap::Copy(DBFFile *vfr, DBFFile *ifr) const
{
    // Where a value runs on past its field, the order decides which later
    // field overwrites it.
    for (int i = 0; i < count_; i++) CopyFieldByPos(vfr, pairs_[i].vfr, ifr, pairs_[i].ifr);
}

void CopyFieldByPos(DBFFile *vfr, int vfrField, DBFFile *ifr, int ifrField)
{
    DBFFile_SetFieldValueByPos(ifr, ifrField, DBFFile_GetFieldValueByPos(vfr, vfrField));
}

void CopyVFRAptField(const char *vfrFieldName, const char *ifrFieldName, DBFFile *vfrTable,
                     DBFFile *ifrTable)
{
    CopyFieldByPos(vfrTable, DBFFile_GetFieldNumber(vfrTable, vfrFieldName), ifrTable,
                   DBFFile_GetFieldNumber(ifrTable, ifrFieldName));
}
