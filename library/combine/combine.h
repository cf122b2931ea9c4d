// Folding a chart directory's VFR data into its IFR files: the routines
// behind TarnTermChart_CombineVFRintoIFR.  Each reads the source directory
// and writes its IFR-named result into the destination directory; the
// source is never written.
#ifndef TARNTERMCHART_COMBINE_H
#define TARNTERMCHART_COMBINE_H

#include <stdint.h>
#include <stdio.h>

#include "api/ahead.h"
#include "dbf/dbf.h"

// "charts.dbf" from the source "charts.dbf" and "vfrchrts.dbf", merged by
// airport (F5_6, ignoring case), an airport's IFR charts before its VFR
// charts.  Both tables must share one record layout.  Without "vfrchrts.dbf"
// nothing is written; without "charts.dbf" the VFR table is copied under the
// IFR name.
//   0, -2 the destination table cannot be created
int MergeChartsDBF(const char *sourceDirectory, const char *destinationDirectory);

// "airports.dbf" from the source "airports.dbf" and "vfrapts.dbf": an
// airport in both tables keeps only its IFR record; VFR-only airports are
// converted to the IFR layout (CopyVFRAptFields).  Missing tables as above.
//   0, -2 the destination table cannot be created
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
//   0, -2 the destination table cannot be created
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
//      written whole
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
int MergeChartsBin(const char *sourceDirectory, const char *destinationDirectory);

// The bundle merge made ahead of its turn (api/ahead.h): it reads only the
// source bundles and, without an IFR bundle, the source "charts.ini".  A
// code found before the bundle is created is kept as it is; only a bundle
// written whole, with its checksum worked out, counts as merged ahead, and
// anything else leaves kInPlace.
void MergeChartsBinAhead(const char *sourceDirectory, const char *destinationDirectory,
                         WrittenAhead *ahead);
// The merge's turn: names the bundle merged ahead and stores its checksum
// as MergeChartsBin does, or gives the code found ahead; where the name is
// taken by now or the file cannot be named, or nothing was done ahead, the
// merge is made here after all.  Returns MergeChartsBin's code.
int PlaceMergedChartsBin(const char *sourceDirectory, const char *destinationDirectory,
                         WrittenAhead *ahead);

// Whether the combine entry may merge its bundle ahead, while the tables
// are merged (by default it may); for tests that compare both ways.
void CombineBundleAheadAllowed(bool allowed);
// How many bundles PlaceMergedChartsBin has named after they were merged
// ahead, since the process began; for tests.
unsigned CombinedBundlesPlacedAhead();

#endif
