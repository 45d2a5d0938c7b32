// The chosen objects of a SQLite database as a script of SQL that makes
// them again: foreign keys off around it, tables before their rows, and
// every trigger after all rows, so that none fires while the script loads.
//
// Every value is written so that it reads back as stored: integers in
// full, REALs in the shortest form that gives the same double, text as
// text (a text that is no valid UTF-8 or holds a code 0 as the bytes it
// is), BLOBs in hex, whatever the column's declared type says.
//
// A run: set the source, the objects (DataTransfer.h), the encoding, then
// Execute (a file) or SQLiteToScript (any device). The metadata items and
// the database are not owned and must outlive the run. Threading: the
// calling thread.
#pragma once

#include "DataTransfer.h"
#include "engine/Encoding.h"

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

class QIODevice;

namespace brindle {

class TBaseMetadata;
class TDLSQLiteDatabase;

class TSQLiteToScript : public TDataTransfer {
public:
    TSQLiteToScript();
    ~TSQLiteToScript() override;

    void Clear() override;
    // Writes FFileName, replacing an old file. A failure reaches
    // FOnTransferError and is raised again in any case; what was written
    // stays.
    void Execute() override;
    // The script into Stream; Sorted says the objects are in dependency
    // order, so tables need not be made column first. Returns true. An
    // abort still writes the closing lines: the script stays whole.
    bool SQLiteToScript(QIODevice& Stream, bool Sorted);

    // Text in FEncoding to the stream; empty text writes nothing.
    void Write(const QString& Value);
    // Text and a CRLF.
    void Writeln(const QString& Value = QString());

    // The destination; its base name stands in the banner.
    QString FFileName;
    TBaseMetadata* FSourceMetadata = nullptr;      // not owned
    TDLSQLiteDatabase* FSourceDatabase = nullptr;  // not owned
    TTransferObjects FObjects;
    // "drop table if exists" ahead of each table, and the same for views.
    bool FDropDestination = false;
    // The database's page size, encoding and auto-vacuum as pragmas.
    bool FIncludeDBProperties = false;
    // Must be set: "Encoding not specified in export to script." otherwise.
    std::optional<TEncoding> FEncoding;
    bool FWriteEncodingPreamble = true;
    bool FIncludeComments = true;

private:
    class TOutput;

    void TableToScript(TTableRec& TableRec, bool IncludeStructure, bool IncludeData, bool IncludeTriggers);
    void CopyStructure(TTableRec& TableRec, bool IncludeStructure, bool IncludeTriggers);
    // The columns alone, for a cycle among the tables.
    void CopyFields(TTableRec& TableRec);
    void ViewToScript(TViewRec& ViewRec, bool IncludeStructure, bool IncludeTriggers);
    void CopyData(TTableRec& TableRec);
    void DataToScript(TTableRec& TableRec);
    void WriteDropTable(TTableRec& TableRec, bool IncludeStructure);
    void WriteComment(const QString& Comment);
    QString DestTableName(TTableRec& TableRec) const;

    std::unique_ptr<TOutput> FOutput;  // set for the run
    // Tables the column pass wrote, which the structure pass writes again.
    QStringList FColumnsMade;
};

}  // namespace brindle
