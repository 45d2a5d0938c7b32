#include "ScriptExport.h"

#include "TransferTools.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLObjectDefs.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"

#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <string_view>

namespace brindle {

namespace {

// Valid UTF-8 without a code 0: text that a string literal can carry as it
// is. A script is text, and the engine reads a literal only up to a code 0.
bool IsPlainText(const unsigned char* p, qsizetype n) {
    const unsigned char* end = p + n;
    while (p < end) {
        // Eight ASCII bytes at a time, the common case.
        if (end - p >= 8) {
            quint64 word;
            std::memcpy(&word, p, 8);
            const quint64 zero = (word - 0x0101010101010101ull) & ~word & 0x8080808080808080ull;
            if ((word & 0x8080808080808080ull) == 0 && zero == 0) {
                p += 8;
                continue;
            }
        }
        const unsigned char c = *p;
        if (c == 0) return false;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int extra;
        char32_t min;
        char32_t code;
        if ((c & 0xE0) == 0xC0) {
            extra = 1, min = 0x80, code = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2, min = 0x800, code = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3, min = 0x10000, code = c & 0x07;
        } else {
            return false;
        }
        if (end - p <= extra) return false;
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80) return false;
            code = (code << 6) | (p[i] & 0x3F);
        }
        if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        p += extra + 1;
    }
    return true;
}

constexpr qsizetype FLUSH_SIZE = 1 << 20;

}  // namespace

// The script's bytes, gathered and written a megabyte at a time. In UTF-8
// the values go in as the engine hands them out; any other encoding
// gathers text and encodes it a block at a time, refusing a character the
// encoding has no form for rather than writing another one.
class TSQLiteToScript::TOutput {
public:
    TOutput(QIODevice& Device, const TEncoding& Encoding)
        : FDevice(Device), FEncoding(Encoding), FUtf8(Encoding.CodePage() == 65001) {}

    bool IsUtf8() const { return FUtf8; }
    void Raw(const QByteArray& Bytes) {
        Flush();
        Write(Bytes);
    }
    void Text(QStringView Value) {
        if (FUtf8)
            FBytes.append(Value.toUtf8());
        else
            FText.append(Value);
    }
    void Ascii(std::string_view Value) {
        if (FUtf8)
            FBytes.append(Value.data(), static_cast<qsizetype>(Value.size()));
        else
            FText.append(QLatin1StringView(Value.data(), static_cast<qsizetype>(Value.size())));
    }
    // The same text in its two forms, to spare the conversion per row.
    void Piece(const QByteArray& Utf8, const QString& Text) {
        if (FUtf8)
            FBytes.append(Utf8);
        else
            FText.append(Text);
    }
    // A string literal of plain UTF-8 text, inner quotes doubled. A
    // carriage return stands apart, as char(13): readers of scripts take a
    // line's CR LF for a line end and keep the LF alone.
    void Literal(const char* Text, qsizetype Size) {
        const char* cr = static_cast<const char*>(std::memchr(Text, '\r', Size));
        if (!cr) return Quoted(Text, Size);
        Ascii("(");
        for (;;) {
            Quoted(Text, cr - Text);
            Size -= cr - Text + 1;
            Text = cr + 1;
            Ascii(" || char(13) || ");
            cr = static_cast<const char*>(std::memchr(Text, '\r', Size));
            if (!cr) break;
        }
        Quoted(Text, Size);
        Ascii(")");
    }
    void Quoted(const char* Text, qsizetype Size) {
        if (!FUtf8) {
            FText.append(QuotedStr(QString::fromUtf8(Text, Size)));
            return;
        }
        FBytes.append('\'');
        const char* end = Text + Size;
        while (const char* quote = static_cast<const char*>(std::memchr(Text, '\'', end - Text))) {
            FBytes.append(Text, quote - Text + 1);
            FBytes.append('\'');
            Text = quote + 1;
        }
        FBytes.append(Text, end - Text);
        FBytes.append('\'');
    }
    void Hex(const unsigned char* Data, qsizetype Size) {
        static constexpr char digits[] = "0123456789ABCDEF";
        char buffer[512];
        qsizetype used = 0;
        for (qsizetype i = 0; i < Size; ++i) {
            buffer[used++] = digits[Data[i] >> 4];
            buffer[used++] = digits[Data[i] & 15];
            if (used == sizeof buffer) {
                Ascii(std::string_view(buffer, used));
                used = 0;
            }
        }
        Ascii(std::string_view(buffer, used));
    }
    void MaybeFlush() {
        if (FBytes.size() >= FLUSH_SIZE || FText.size() >= FLUSH_SIZE / 2) Flush();
    }
    void Flush() {
        if (FUtf8) {
            Write(FBytes);
            FBytes.clear();
            return;
        }
        if (FText.isEmpty()) return;
        QByteArray bytes;
        try {
            bytes = FEncoding.GetBytesStrict(FText);
        } catch (const ECustomException& e) {
            const qsizetype offset = e.GetParam(QStringLiteral("Offset")).toLongLong();
            const QString hex =
                offset < FText.size() ? QString::number(FText.at(offset).unicode(), 16).toUpper() : QString();
            throw ECustomException(
                QStringLiteral(
                    "The script cannot be written in %1: the character U+%2 in %3 has no form in it")
                    .arg(FEncoding.Name(), hex.rightJustified(4, u'0'), FContext));
        }
        FText.clear();
        Write(bytes);
    }

    // What is being written, for messages.
    QString FContext;

private:
    void Write(const QByteArray& Bytes) {
        if (Bytes.isEmpty()) return;
        if (FDevice.write(Bytes) != Bytes.size())
            throw ECustomException(
                QStringLiteral("Could not write the script: %1").arg(FDevice.errorString()));
    }

    QIODevice& FDevice;
    TEncoding FEncoding;
    bool FUtf8;
    QByteArray FBytes;
    QString FText;
};

TSQLiteToScript::TSQLiteToScript() = default;
TSQLiteToScript::~TSQLiteToScript() = default;

void TSQLiteToScript::Clear() {
    FObjects.clear();
    FSourceMetadata = nullptr;
    FSourceDatabase = nullptr;
}

void TSQLiteToScript::Write(const QString& Value) {
    if (!Value.isEmpty()) FOutput->Text(Value);
}

void TSQLiteToScript::Writeln(const QString& Value) {
    Write(Value);
    FOutput->Ascii("\r\n");
    FOutput->MaybeFlush();
}

void TSQLiteToScript::WriteComment(const QString& Comment) {
    if (FIncludeComments) Writeln(QStringLiteral("/* %1 */").arg(CommentSafe(Comment)));
}

QString TSQLiteToScript::DestTableName(TTableRec& TableRec) const {
    if (TableRec.FDestTableName.isEmpty())
        TableRec.FDestTableName = TDBToDB::DestObjectName(TableRec.FTableInfo->FTableName);
    return TableRec.FDestTableName;
}

void TSQLiteToScript::Execute() {
    FAborted = false;
    try {
        const bool sorted = SortObjectsByDependencies(FObjects);
        QFile file(FFileName);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            throw ECustomException(
                QStringLiteral("Cannot create file \"%1\": %2").arg(FFileName, file.errorString()));
        SQLiteToScript(file, sorted);
        if (!file.flush())
            throw ECustomException(QStringLiteral("Could not write the script: %1").arg(file.errorString()));
        file.close();
        DoOnTransferComplete();
    } catch (const ECustomException& e) {
        DoOnTransferError(e.message());
        throw;
    }
}

bool TSQLiteToScript::SQLiteToScript(QIODevice& Stream, bool Sorted) {
    if (!FEncoding) throw ECustomException(QStringLiteral("Encoding not specified in export to script."));
    FOutput = std::make_unique<TOutput>(Stream, *FEncoding);
    struct TDone {
        std::unique_ptr<TOutput>& Output;
        ~TDone() { Output.reset(); }
    } done{FOutput};

    if (FWriteEncodingPreamble) FOutput->Raw(FEncoding->GetPreamble());
    const QString base = CommentSafe(QFileInfo(FFileName.trimmed()).fileName());
    if (FIncludeComments && !FFileName.trimmed().isEmpty()) {
        const qsizetype n = base.size();
        const QString edge = QStringLiteral("/**") + QString(n, u'*') + QStringLiteral("**/");
        const QString blank = QStringLiteral("/* ") + QString(n, u' ') + QStringLiteral(" */");
        Writeln(edge);
        Writeln(blank);
        Writeln(QStringLiteral("/* ") + base + QStringLiteral(" */"));
        Writeln(blank);
        Writeln(edge);
        Writeln();
    }
    // These three comments stand even without comments: they mark what the
    // script does to the connection that runs it.
    Writeln(QStringLiteral("/* Disable Foreign Keys */"));
    Writeln(QStringLiteral("pragma foreign_keys = off;"));
    if (FUseTransaction) {
        WriteComment(QStringLiteral("Begin Transaction"));
        Writeln(QStringLiteral("begin transaction;"));
        Writeln();
    }
    if (FIncludeDBProperties && FSourceDatabase) {
        const QString name =
            FSourceDatabase->AliasName().isEmpty() ? QStringLiteral("main") : FSourceDatabase->AliasName();
        WriteComment(QStringLiteral("Database %1").arg(QuoteIdentifier(name)));
        TSQLiteDatabaseParams& params = FSourceDatabase->DatabaseParams();
        // The page size first: once auto_vacuum is set on a new file the
        // engine keeps the page size it has.
        Writeln(QStringLiteral("pragma page_size=%1;").arg(params.PageSize()));
        Writeln(QStringLiteral("pragma auto_vacuum=%1;").arg(params.AutoVacuum()));
        Writeln(QStringLiteral("pragma encoding=%1;").arg(QuotedStr(params.Encoding())));
        Writeln();
    }

    const int count = static_cast<int>(FObjects.size());
    auto pass = [&](const std::function<void(TObjRec&)>& Step) {
        for (int i = 0; i < count; ++i) {
            if (DoCheckAbort()) return;
            Step(*FObjects[static_cast<size_t>(i)]);
            DoProgress(i + 1, count);
        }
    };
    if (!Sorted)
        pass([this](TObjRec& obj) {
            if (auto* t = dynamic_cast<TTableRec*>(&obj)) CopyFields(*t);
        });
    pass([this](TObjRec& obj) {
        if (auto* t = dynamic_cast<TTableRec*>(&obj))
            TableToScript(*t, true, true, false);
        else if (auto* v = dynamic_cast<TViewRec*>(&obj))
            ViewToScript(*v, true, false);
    });
    pass([this](TObjRec& obj) {
        if (auto* t = dynamic_cast<TTableRec*>(&obj))
            TableToScript(*t, false, false, true);
        else if (auto* v = dynamic_cast<TViewRec*>(&obj))
            ViewToScript(*v, false, true);
    });

    if (FUseTransaction) {
        Writeln(QStringLiteral("/* Commit Transaction */"));
        Writeln(QStringLiteral("commit transaction;"));
        Writeln();
    }
    Writeln(QStringLiteral("/* Enable Foreign Keys */"));
    Writeln(QStringLiteral("pragma foreign_keys = on;"));
    FOutput->Flush();
    FColumnsMade.clear();
    return true;
}

void TSQLiteToScript::WriteDropTable(TTableRec& TableRec, bool IncludeStructure) {
    const QString name = DestTableName(TableRec);
    // A table the column pass made is made again whole.
    const bool placeholder = IncludeStructure && FColumnsMade.removeAll(name) > 0;
    if (!placeholder && !(FDropDestination && TableRec.FIncludeStructure && IncludeStructure)) return;
    DoLog(QStringLiteral("Dropping table..."));
    WriteComment(QStringLiteral("Drop table %1").arg(name));
    Writeln(QStringLiteral("drop table if exists %1;").arg(name));
    Writeln();
}

void TSQLiteToScript::CopyFields(TTableRec& TableRec) {
    const auto* info = dynamic_cast<const TSQLiteTableInfo*>(TableRec.FTableInfo);
    // A module's table is made whole, once, in its turn.
    if (!TableRec.FIncludeStructure || (info && (info->FIsVirtual || info->FIsShadow))) return;
    WriteDropTable(TableRec, false);
    const QString name = DestTableName(TableRec);
    TDLTableDef def(name);
    AddFieldDefs(*TableRec.FTableInfo, def, true);
    SetTableOptions(*TableRec.FTableInfo, def);
    // Without its key a table without rowid cannot be made.
    def.FIsWithoutRowID = false;
    WriteComment(QStringLiteral("Table structure %1").arg(name));
    Writeln(def.GetCreateSQL(true, false, false).trimmed());
    Writeln();
    FColumnsMade << name;
}

void TSQLiteToScript::TableToScript(TTableRec& TableRec, bool IncludeStructure, bool IncludeData,
                                    bool IncludeTriggers) {
    if (!TableRec.GetSelected()) return;
    DoLog(QString());
    DoLog(QStringLiteral("Generating script for table: ") + DestTableName(TableRec));
    FOutput->FContext = QStringLiteral("table ") + DestTableName(TableRec);
    CopyStructure(TableRec, IncludeStructure, IncludeTriggers);
    if (TableRec.FIncludeData && IncludeData) {
        DoLog(QStringLiteral("Copying data..."));
        CopyData(TableRec);
        Writeln();
        Writeln();
    }
}

void TSQLiteToScript::CopyStructure(TTableRec& TableRec, bool IncludeStructure, bool IncludeTriggers) {
    WriteDropTable(TableRec, IncludeStructure);
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    const auto* info = dynamic_cast<const TSQLiteTableInfo*>(&table);
    const QString name = DestTableName(TableRec);
    const bool structure = TableRec.FIncludeStructure && IncludeStructure;
    QString text;
    if (info && info->FIsVirtual) {
        if (structure) {
            DoLog(QStringLiteral("Copying structure..."));
            text = TDLVirtualTableDef(name, info->FModuleName, info->FModuleArguments).GetCreateSQL();
        }
    } else if (!(info && info->FIsShadow)) {
        TDLTableDef def(name);
        if (structure) {
            DoLog(QStringLiteral("Copying structure..."));
            AddFieldDefs(table, def, true);
        }
        QStringList extra;  // indexes of expressions, from their stored text
        if (IncludeStructure) {
            const QString tableName = BareObjectName(table.FTableName);
            bool hasPrimaryKey = false;
            for (int i = 0; i < table.IndexCount(); ++i) {
                const TBaseIndexInfo& index = table.Indexes(i);
                if (!TableRec.FIndexes.contains(index.FIndexName)) continue;
                const bool primary = (index.FOptions & ixPrimary) && !hasPrimaryKey;
                if (primary) hasPrimaryKey = true;
                if (!primary && IsAutoIndex(tableName, index.FIndexName)) continue;
                const QString indexName =
                    FRenameIndexes && !primary
                        ? QStringLiteral("%1_%2").arg(BareObjectName(name), index.FIndexName)
                        : index.FIndexName;
                if (!primary && HasExpressionColumns(index))
                    extra << EndStatement(StoredIndexText(index, indexName, name));
                else if (!def.FindIndex(indexName))
                    def.AddIndex(IndexDefOf(index, indexName, primary));
            }
        }
        if (IncludeTriggers) {
            for (int i = 0; i < table.TriggerCount(); ++i) {
                const TBaseTriggerInfo& trigger = table.Triggers(i);
                if (!TableRec.FTriggers.contains(trigger.FTriggerName)) continue;
                TTriggerRec rec = GetTriggerRec(trigger.FSQL);
                // The trigger's table is in the database the script runs in.
                rec.DatabaseName.clear();
                rec.TableName = name;
                def.AddTrigger(trigger.FTriggerName, BuildTriggerSQL(rec, trigger.FIsTemporary));
            }
        }
        if (TableRec.FIncludeConstraints && IncludeStructure) AddConstraintDefs(table, def);
        SetTableOptions(table, def);
        const QString stored = structure && info ? StoredTableText(*info, name) : QString();
        if (!stored.isEmpty())
            text = EndStatement(stored) + def.GetCreateSQL(false, IncludeStructure, IncludeTriggers);
        else
            text = def.GetCreateSQL(structure, IncludeStructure, IncludeTriggers);
        for (const QString& sql : extra) text += QStringLiteral("\r\n") + sql;
    }
    text = text.trimmed();
    if (text.isEmpty()) return;
    WriteComment(IncludeTriggers ? QStringLiteral("Triggers for table %1").arg(name)
                                 : QStringLiteral("Table structure %1").arg(name));
    Writeln(text);
    Writeln();
}

void TSQLiteToScript::ViewToScript(TViewRec& ViewRec, bool IncludeStructure, bool IncludeTriggers) {
    if (!ViewRec.GetSelected()) return;
    const TBaseViewInfo& view = *ViewRec.FViewInfo;
    if (ViewRec.FDestViewName.isEmpty()) ViewRec.FDestViewName = TDBToDB::DestObjectName(view.FViewName);
    const QString name = ViewRec.FDestViewName;
    DoLog(QString());
    DoLog(QStringLiteral("Generating script for view: ") + name);
    FOutput->FContext = QStringLiteral("view ") + name;
    if (FDropDestination && ViewRec.FIncludeStructure && IncludeStructure) {
        DoLog(QStringLiteral("Dropping view..."));
        WriteComment(QStringLiteral("Drop view %1").arg(name));
        Writeln(QStringLiteral("drop view if exists %1;").arg(name));
        Writeln();
    }
    const TViewDataRec rec = GetViewRec(view.FSQL);
    TDLViewDef def(name, rec.AsClause);
    def.FColumnNames = rec.ColumnNames;
    for (int i = 0; i < view.TriggerCount(); ++i) {
        const TBaseTriggerInfo& trigger = view.Triggers(i);
        if (!ViewRec.FTriggers.contains(trigger.FTriggerName)) continue;
        const bool renamed = !SameObject(TDBToDB::DestObjectName(view.FViewName), name);
        def.AddTrigger(trigger.FTriggerName,
                       renamed ? ReplaceTableNameInTrigger(trigger.FSQL, name) : trigger.FSQL);
    }
    const QString text =
        def.GetCreateSQL(ViewRec.FIncludeStructure && IncludeStructure, IncludeTriggers).trimmed();
    if (text.isEmpty()) return;
    WriteComment(IncludeTriggers ? QStringLiteral("Triggers for view %1").arg(name)
                                 : QStringLiteral("View %1").arg(name));
    // A view's text alone has no ";" of its own.
    Writeln(EndStatement(text));
    Writeln();
}

void TSQLiteToScript::CopyData(TTableRec& TableRec) {
    const auto* info = dynamic_cast<const TSQLiteTableInfo*>(TableRec.FTableInfo);
    if (info && info->FIsShadow) return;  // its virtual table fills it
    WriteComment(QStringLiteral("Data %1").arg(DestTableName(TableRec)));
    DataToScript(TableRec);
    // The AUTOINCREMENT counter may stand above the highest key: it goes
    // with the table the script makes.
    if (!FAborted && TableRec.FIncludeStructure) {
        if (const std::optional<qint64> seq =
                ReadSequence(*FSourceDatabase, BareObjectName(TableRec.FTableInfo->FTableName)))
            for (const QString& sql : SequenceStatements(DestTableName(TableRec), *seq)) Writeln(sql);
    }
}

void TSQLiteToScript::DataToScript(TTableRec& TableRec) {
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    const auto* info = dynamic_cast<const TSQLiteTableInfo*>(&table);
    const QString source = table.FTableName;
    const QString from = QStringLiteral(" from ") + QuoteQualifiedName(source);
    // Computed columns are the engine's to fill, and a table the script
    // makes keeps its rows' rowids: such a table's rows name the columns
    // they give.
    const bool computed = HasComputedColumns(table) && !(info && info->FIsVirtual);
    const bool rowid = TableRec.FIncludeStructure && KeepsRowID(table);
    TPreparedStatement select(
        *FSourceDatabase, QStringLiteral("select ") + (rowid ? QStringLiteral("rowid, ") : QString()) +
                              (computed ? QuotedColumnList(InsertableColumns(table)) : QStringLiteral("*")) +
                              from);
    QString head = QStringLiteral("insert into %1 values(").arg(DestTableName(TableRec));
    if (computed || rowid) {
        QStringList names;
        for (int c = rowid ? 1 : 0;
             select.Handle() && c < SQLite3Driver->sqlite3_column_count(select.Handle()); ++c)
            names << QString::fromUtf16(
                static_cast<const char16_t*>(SQLite3Driver->sqlite3_column_name16(select.Handle(), c)));
        head = QStringLiteral("insert into %1(%2%3) values(")
                   .arg(DestTableName(TableRec), rowid ? QStringLiteral("rowid, ") : QString(),
                        QuotedColumnList(names));
    }
    const QByteArray headUtf8 = head.toUtf8();
    TSQLite3Driver& d = *SQLite3Driver;
    sqlite3_stmt* stmt = select.Handle();
    const int n = stmt ? d.sqlite3_column_count(stmt) : 0;
    TOutput& out = *FOutput;
    qint64 recNo = 0;
    char number[40];
    while (select.Step()) {
        out.Piece(headUtf8, head);
        for (int c = 0; c < n; ++c) {
            if (c > 0) out.Ascii(", ");
            switch (d.sqlite3_column_type(stmt, c)) {
                case SQLITE_INTEGER: {
                    const auto r =
                        std::to_chars(number, number + sizeof number, d.sqlite3_column_int64(stmt, c));
                    out.Ascii(std::string_view(number, r.ptr - number));
                    break;
                }
                case SQLITE_FLOAT: {
                    const double v = d.sqlite3_column_double(stmt, c);
                    if (std::isinf(v)) {
                        // What the engine reads as infinity.
                        out.Ascii(v > 0 ? "9.0e+999" : "-9.0e+999");
                        break;
                    }
                    // The shortest text that reads back as the same
                    // double, and never as an integer.
                    const auto r = std::to_chars(number, number + sizeof number, v);
                    const std::string_view text(number, r.ptr - number);
                    out.Ascii(text);
                    if (text.find_first_of(".en") == std::string_view::npos) out.Ascii(".0");
                    break;
                }
                case SQLITE_TEXT: {
                    const auto* text = d.sqlite3_column_text(stmt, c);
                    const int size = d.sqlite3_column_bytes(stmt, c);
                    if (IsPlainText(text, size)) {
                        out.Literal(reinterpret_cast<const char*>(text), size);
                    } else {
                        // Text that is no valid UTF-8, or holds a code 0,
                        // goes as its very bytes.
                        out.Ascii("cast(x'");
                        out.Hex(text, size);
                        out.Ascii("' as text)");
                    }
                    break;
                }
                case SQLITE_BLOB:
                    out.Ascii("x'");
                    out.Hex(static_cast<const unsigned char*>(d.sqlite3_column_blob(stmt, c)),
                            d.sqlite3_column_bytes(stmt, c));
                    out.Ascii("'");
                    break;
                default:
                    out.Ascii("null");
                    break;
            }
        }
        out.Ascii(");\r\n");
        out.MaybeFlush();
        if (++recNo % 100 == 0) {
            DoTableProgress(source, recNo);
            if (DoCheckAbort()) break;
        }
    }
    DoTableProgress(source, recNo);
}

}  // namespace brindle
