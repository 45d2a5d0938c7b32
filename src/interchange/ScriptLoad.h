// Running a file of SQL statements against a SQLite database: the scripts
// TSQLiteToScript writes, or any other. A script below 10 MiB is read
// whole and split once; a larger one is read in slices of 262144
// characters, so that no more than a slice and one open statement are ever
// in memory, however large the file.
//
// The loader opens no transaction of its own: a script that wants all or
// nothing says "begin transaction;" itself. At a failing statement the run
// stops, and what ran before stays, a transaction the script opened
// included; closing the connection rolls that back.
//
// Threading: the calling thread.
#pragma once

#include "DataTransfer.h"
#include "TextBuffers.h"
#include "engine/Encoding.h"

#include <QByteArray>
#include <QString>
#include <QStringEncoder>
#include <optional>

class QIODevice;

namespace brindle {

class TDLSQLiteDatabase;

// A character source that hands out slices of text.
class TStringBuffer : public TBuffer {
public:
    using TBuffer::TBuffer;

    // Fills Buffer with up to its length in characters and returns how
    // many it filled; less than the length only at the end of the stream.
    // Throws as GetChar does.
    int ReadBuffer(QString& Buffer);
};

class TScriptToSQLite : public TDataTransfer {
public:
    // From this size on a script is read in slices.
    static constexpr qint64 LARGE_SCRIPT_SIZE = 10485760;
    static constexpr int SLICE_SIZE = 0x40000;

    TScriptToSQLite();
    ~TScriptToSQLite() override;

    void Clear() override;
    // Runs the script. A failure is not raised: it reaches
    // FOnTransferError and stays in ErrorMessage; FOnTransferComplete fires
    // only after a run without one (an abort included).
    void Execute() override;

    QString FFileName;
    TDLSQLiteDatabase* FDestDatabase = nullptr;  // not owned
    // The script's encoding; a byte order mark of it is skipped, one of
    // another encoding refused.
    std::optional<TEncoding> FEncoding;

    // The last run's failure with the failing statement's number (from 1)
    // and the line it starts on; empty after a run without one.
    const QString& ErrorMessage() const { return FErrorMessage; }
    // Statements the last run ran to their end.
    qint64 StatementCount() const { return FStatements; }

private:
    void ScriptToSQLite();
    void SmallScriptToSQLite(QIODevice& File);
    void LargeScriptToSQLite(QIODevice& File, qint64 Size);
    // One piece of the script, as the splitter cut it: its statement run,
    // its lines counted.
    void RunPiece(const QString& Piece);
    void ExecuteStatement(const QString& Statement);
    // The first bytes of a script in UTF-16 without its mark, to be read
    // in another encoding.
    void CheckHead(const QByteArray& Head) const;
    // A script read in the wrong encoding (UTF-16 without its mark read as
    // UTF-8, for one) shows characters of code 0, which no SQL text holds.
    void CheckText(QStringView Text) const;

    QString FErrorMessage;
    QByteArray FUtf8;  // the statement being prepared
    QStringEncoder FUtf8Encoder{QStringEncoder::Utf8, QStringConverter::Flag::Stateless};
    qint64 FStatements = 0;
    qint64 FLine = 1;  // the line the next piece starts on
};

}  // namespace brindle
