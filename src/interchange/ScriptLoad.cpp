#include "ScriptLoad.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "engine/SQLText.h"

#include <QFile>
#include <QStringList>
#include <algorithm>
#include <memory>

namespace brindle {

int TStringBuffer::ReadBuffer(QString& Buffer) {
    char16_t* data = reinterpret_cast<char16_t*>(Buffer.data());
    const qsizetype size = Buffer.size();
    qsizetype count = 0;
    while (count < size) {
        // A run of the decoded block at once; GetChar decodes the next.
        if (const qsizetype run = std::min(Available(), size - count); run > 0) {
            std::copy_n(Current(), run, data + count);
            Skip(run);
            count += run;
        } else if (GetChar(data[count])) {
            ++count;
        } else {
            break;
        }
    }
    return static_cast<int>(count);
}

namespace {

// Where the piece's first word stands, past blanks and comments; the size
// when there is none.
qsizetype FirstWord(QStringView Text) {
    const qsizetype n = Text.size();
    qsizetype i = 0;
    while (i < n) {
        const QChar c = Text[i];
        if (c.isSpace()) {
            ++i;
        } else if (c == u'-' && i + 1 < n && Text[i + 1] == u'-') {
            while (i < n && Text[i] != u'\n') ++i;
        } else if (c == u'/' && i + 1 < n && Text[i + 1] == u'*') {
            const qsizetype end = Text.indexOf(QLatin1String("*/"), i + 2);
            i = end < 0 ? n : end + 2;
        } else {
            break;
        }
    }
    return i;
}

bool StartsWithWord(QStringView Text, qsizetype At, QLatin1StringView Word) {
    const qsizetype end = At + Word.size();
    if (end > Text.size() || Text.mid(At, Word.size()).compare(Word, Qt::CaseInsensitive) != 0) return false;
    return end == Text.size() || !(Text[end].isLetterOrNumber() || Text[end] == u'_' || Text[end] == u'$');
}

struct TStatementCloser {
    void operator()(sqlite3_stmt* Statement) const { SQLite3Driver->sqlite3_finalize(Statement); }
};
using TStatementPtr = std::unique_ptr<sqlite3_stmt, TStatementCloser>;

}  // namespace

TScriptToSQLite::TScriptToSQLite() = default;
TScriptToSQLite::~TScriptToSQLite() = default;

void TScriptToSQLite::Clear() {
    FDestDatabase = nullptr;
}

void TScriptToSQLite::Execute() {
    FAborted = false;
    FErrorMessage.clear();
    FStatements = 0;
    FLine = 1;
    try {
        ScriptToSQLite();
        DoOnTransferComplete();
    } catch (const ECustomException& e) {
        FErrorMessage = e.message();
        DoOnTransferError(e.message());
    }
}

void TScriptToSQLite::ScriptToSQLite() {
    if (!FDestDatabase) throw ECustomException(QStringLiteral("No database to run the script in"));
    if (!FEncoding) throw ECustomException(QStringLiteral("Encoding not specified for the script."));
    TWaitCursorGuard cursor(FDestDatabase->FShowWaitCursor);
    DoLog(QStringLiteral("Executing script: ") + FFileName);
    QFile file(FFileName);
    if (!file.open(QIODevice::ReadOnly))
        throw ECustomException(
            QStringLiteral("Cannot open file \"%1\": %2").arg(FFileName, file.errorString()));
    CheckHead(file.peek(1024));
    const qint64 size = file.size();
    // Below the line one split of the whole text is faster; above it the
    // text is never whole in memory.
    if (size < LARGE_SCRIPT_SIZE)
        SmallScriptToSQLite(file);
    else
        LargeScriptToSQLite(file, size);
}

void TScriptToSQLite::SmallScriptToSQLite(QIODevice& File) {
    TStringBuffer buffer(File, *FEncoding);
    QString text;
    QString slice(SLICE_SIZE, Qt::Uninitialized);
    for (int n; (n = buffer.ReadBuffer(slice)) > 0;) text.append(QStringView(slice).left(n));
    CheckText(text);
    QStringList list;
    ParseSQL(text, list, true);
    text.clear();
    const int count = static_cast<int>(list.size());
    for (int i = 0; i < count; ++i) {
        RunPiece(list[i]);
        DoProgress(i + 1, count);
        if (DoCheckAbort()) break;
    }
}

void TScriptToSQLite::LargeScriptToSQLite(QIODevice& File, qint64 Size) {
    TStringBuffer buffer(File, *FEncoding);
    QString slice(SLICE_SIZE, Qt::Uninitialized);
    QString data;
    QStringList list;
    for (;;) {
        const int size = buffer.ReadBuffer(slice);
        if (size > 0) {
            const QStringView read = QStringView(slice).left(size);
            CheckText(read);
            data.append(read);
            // The semicolons stay, so that the last piece tells whether it
            // is complete; it is carried over to the next slice either way.
            list.clear();
            ParseSQL(data, list, false);
            for (qsizetype i = 0; i + 1 < list.size() && !FAborted; ++i) {
                RunPiece(list[i]);
                DoCheckAbort();
            }
            if (!list.isEmpty()) data = list.last();
        } else if (!data.isEmpty()) {
            RunPiece(data);
            data.clear();
        }
        if (Size > 0) DoProgress(static_cast<int>((File.pos() + 1) * 1000 / Size), 1000);
        if (DoCheckAbort() || size == 0) break;
    }
}

void TScriptToSQLite::CheckHead(const QByteArray& Head) const {
    if (FEncoding->CodePage() == 1200 || FEncoding->CodePage() == 1201 || Head.isEmpty()) return;
    // Text in UTF-16 has a zero in every other byte while it stays ASCII;
    // SQL in any other encoding has none.
    if (Head.count('\0') * 4 >= Head.size())
        throw ECustomException(
            QStringLiteral("The script is not text in %1: it looks like UTF-16 without a byte "
                           "order mark, and must be read as UTF-16")
                .arg(FEncoding->Name()));
}

void TScriptToSQLite::CheckText(QStringView Text) const {
    const qsizetype at = Text.indexOf(QChar(0));
    if (at < 0) return;
    const qint64 line = FLine + Text.left(at).count(u'\n');
    throw ECustomException(
        QStringLiteral(
            "The script holds a character of code 0 near line %1: it is not text in %2 (a script in "
            "UTF-16 without a byte order mark reads so as UTF-8)")
            .arg(line)
            .arg(FEncoding->Name()));
}

void TScriptToSQLite::RunPiece(const QString& Piece) {
    const qsizetype start = FirstWord(Piece);
    const qint64 line = FLine + QStringView(Piece).left(start).count(u'\n');
    FLine += Piece.count(u'\n');
    if (start >= Piece.size()) return;  // blanks and comments
    try {
        ExecuteStatement(Piece);
    } catch (const ECustomException& e) {
        ECustomException failure(
            QStringLiteral("Statement %1 (line %2): %3").arg(FStatements + 1).arg(line).arg(e.message()));
        for (qsizetype i = 0; i < e.Names().size(); ++i) failure.SetParam(e.Names()[i], e.Values()[i]);
        failure.SetParam(QStringLiteral("Statement"), QString::number(FStatements + 1));
        failure.SetParam(QStringLiteral("Line"), QString::number(line));
        throw failure;
    }
    ++FStatements;
}

void TScriptToSQLite::ExecuteStatement(const QString& Statement) {
    TDLSQLiteDatabase& db = *FDestDatabase;
    const qsizetype start = FirstWord(Statement);
    // The rows of a script go straight to the engine. Anything else runs
    // through the database, which keeps its books on savepoints,
    // attachments and the like.
    if (!StartsWithWord(Statement, start, QLatin1StringView("insert")) &&
        !StartsWithWord(Statement, start, QLatin1StringView("replace"))) {
        db.Execute(Statement);
        return;
    }
    // Handed over as UTF-8, the engine's own form, from one buffer that
    // serves every statement.
    const QStringView rest = QStringView(Statement).mid(start);
    const qsizetype room = rest.size() * 3 + 1;
    if (FUtf8.size() < room) FUtf8.resize(room);
    char* const begin = FUtf8.data();
    const char* end = FUtf8Encoder.appendToBuffer(begin, rest);
    TSQLite3Driver& d = *SQLite3Driver;
    for (const char* text = begin; text < end;) {
        sqlite3_stmt* raw = nullptr;
        const char* tail = nullptr;
        const int rc = d.sqlite3_prepare_v2(db.Handle(), text, static_cast<int>(end - text), &raw, &tail);
        TStatementPtr stmt(raw);
        if (rc != SQLITE_OK) db.SQLiteCheck(rc, Statement);
        text = tail ? tail : end;
        if (!stmt) continue;
        int step;
        while ((step = d.sqlite3_step(stmt.get())) == SQLITE_ROW) {
        }
        if (step != SQLITE_DONE) {
            d.sqlite3_reset(stmt.get());
            db.SQLiteCheck(step, Statement);
        }
    }
}

}  // namespace brindle
