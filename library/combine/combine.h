// Folding a chart directory's VFR data into its IFR files: the routines
// behind TarnTermChart_CombineVFRintoIFR.  Each reads the source directory
// and writes its IFR-named result into the destination directory; the
// source is never written.
#ifndef TARNTERMCHART_COMBINE_H
#define TARNTERMCHART_COMBINE_H

#include <stdint.h>
#include <stdio.h>

#include <atomic>

#include "dbf/dbf.h"

class NewFile;

// "charts.dbf" from the source "charts.dbf" and "vfrchrts.dbf", merged by
// airport (F5_6, ignoring case), an airport's IFR charts before its VFR
// charts.  Both tables must share one record layout.  Without "vfrchrts.dbf"
// nothing is written; without "charts.dbf" the VFR table is copied under the
// IFR name.  Every table written here takes its name only once it is whole.
//   0, -2 the destination table cannot be created, or a source table's
//   header does not describe its file or it ends before its last record
//   (nothing is written), -11 a write failed
int MergeChartsDBF(const char *sourceDirectory, const char *destinationDirectory);

// "airports.dbf" from the source "airports.dbf" and "vfrapts.dbf": an
// airport in both tables keeps only its IFR record; VFR-only airports are
// converted to the IFR layout (CopyVFRAptFields).  Missing tables as above.
//   0, -2 as MergeChartsDBF, -11 a write failed
int MergeAirportsDBF(const char *sourceDirectory, const char *destinationDirectory);

// Converts the current record of vfrTable into the record buffer of
// ifrTemplateTable (a handle on the IFR table that is never read, so fields
// outside the mapping keep what the buffer held) and writes it to output.
void CopyVFRAptFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output);

// Copies one field value: read from vfrTable by name, stored into the
// current record of ifrTable at the position of ifrFieldName.  A field that
// vfrTable lacks is stored blank; one that ifrTable lacks is not stored.
void CopyVFRAptField(const char *vfrFieldName, const char *ifrFieldName, DBFFile *vfrTable,
                     DBFFile *ifrTable);

// "notams.dbf" from the source "notams.dbf" and "vfrntms.dbf", merged by
// country and airport; equal keys keep both records, the IFR one first.
// VFR records are converted by CopyVFRNotamFields with their memo blocks
// moved behind the IFR memo file's blocks.  Missing tables as above.
//   0, -2 as MergeChartsDBF, -11 a write failed
int MergeNotamsDBF(const char *sourceDirectory, const char *destinationDirectory);

// Converts the current VFR NOTAM as CopyVFRAptFields does; its memo block
// number becomes the VFR one plus blockOffset.
void CopyVFRNotamFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output,
                        uint32_t blockOffset);

// "notams.dbt": the source "notams.dbt" and then "vfrntms.dbt", each less a
// trailing end-of-file byte, and one end-of-file byte.  Always written, also
// when neither memo file exists.
//   0, -2 the destination memo file cannot be created,
//  -3 no memory to copy a memo file, -4 a memo file cannot be read or
//      written whole, -11 the end-of-file byte (or the flush before the
//      file takes its name) failed
int MergeNotamsDBT(const char *sourceDirectory, const char *destinationDirectory);

// "charts.bin" holding every chart file of the source "charts.bin" and
// "vfrcharts.bin": IFR blobs first, in IFR table order, then the VFR ones;
// the table sorted; the Tarn checksum at offset 0.  Without "vfrcharts.bin"
// nothing is written.
//   0
//  -1 neither bundle exists, or no memory for the combined table
//  -2 the destination bundle cannot be created
//  -3 its header cannot be written
//  -4 / -7 no memory to copy an IFR / VFR blob
//  -5 / -8 an IFR / VFR blob (or the bundle's table) cannot be read whole
//  -6 / -9 an IFR / VFR blob cannot be written whole
//  -10 the table cannot be written whole
//  -11 the checksum cannot be stored, or the bundle cannot take its name
int MergeChartsBin(const char *sourceDirectory, const char *destinationDirectory);
// MergeChartsBin up to the bundle's name: written whole into out with its
// checksum but not committed, so that it can be made on a second thread and
// take its name at its turn.  out is left uncreated for a code found before
// the bundle is (0 without "vfrcharts.bin").  stop (may be null) gives up a
// merge under way.
int MergeChartsBinInto(const char *sourceDirectory, const char *destinationDirectory, NewFile &out,
                       const std::atomic<bool> *stop);

#endif
