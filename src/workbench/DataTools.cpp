#include "DataTools.h"

#include "data/DLSQLDataSet.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

#include <QLocale>
#include <algorithm>

namespace brindle {

namespace {

// Runs Work under the named savepoint. A failure undoes what Work did: back
// to the savepoint inside a transaction that was open before, or the whole
// transaction the savepoint began; the rows are then read again and the
// failure goes on to the caller.
template <typename F>
void UnderSavepoint(TDLSQLDataSet& DataSet, const QString& Name, F&& Work) {
    TDLSQLiteDatabase* db = DataSet.Database();
    if (!db) throw ECustomException(QStringLiteral("No database"));
    const bool inTransaction = db->GetInTransaction();
    db->Execute(QStringLiteral("savepoint ") + Name, nullptr);
    try {
        Work();
        db->Execute(QStringLiteral("release savepoint ") + Name, nullptr);
    } catch (...) {
        try {
            if (DataSet.State() == dsEdit || DataSet.State() == dsInsert) DataSet.Cancel();
            if (db->GetInTransaction()) {
                if (inTransaction) {
                    db->Execute(QStringLiteral("rollback to savepoint ") + Name, nullptr);
                    db->Execute(QStringLiteral("release savepoint ") + Name, nullptr);
                } else {
                    db->Rollback();
                }
            }
            DataSet.Refresh();
        } catch (...) {  // the first failure is the one to report
        }
        throw;
    }
}

}  // namespace

void SetSelectedCellsToValue(TDLSQLDataSet& DataSet, const TRowRangeList& Rows, const QStringList& FieldNames,
                             const QVariant& Value) {
    DataSet.CheckBrowseMode();
    std::vector<const TField*> fields;
    for (const QString& name : FieldNames) fields.push_back(&DataSet.FieldByName(name));
    if (fields.empty() || Rows.empty()) return;
    TControlsDisabled quiet(DataSet);
    UnderSavepoint(DataSet, QStringLiteral("brindle_set_cells"), [&] {
        for (const auto& range : Rows)
            for (int row = range.first; row <= range.second; ++row) {
                DataSet.SetRecNo(row + 1);
                if (DataSet.GetRecNo() != row + 1) throw ECustomException(QStringLiteral("Record not found"));
                DataSet.Edit();
                for (const TField* f : fields) DataSet.SetFieldValue(*f, Value);
                try {
                    DataSet.Post();
                } catch (...) {
                    DataSet.Cancel();
                    throw;
                }
            }
    });
}

void DeleteSelection(TDLSQLDataSet& DataSet, const TRowRangeList& Rows) {
    DataSet.CheckBrowseMode();
    if (Rows.empty()) return;
    TRowRangeList sorted = Rows;
    std::sort(sorted.begin(), sorted.end());
    TControlsDisabled quiet(DataSet);
    UnderSavepoint(DataSet, QStringLiteral("brindle_delete_rows"), [&] {
        for (auto range = sorted.rbegin(); range != sorted.rend(); ++range)
            for (int row = range->second; row >= range->first; --row) {
                DataSet.SetRecNo(row + 1);
                if (DataSet.GetRecNo() != row + 1) throw ECustomException(QStringLiteral("Record not found"));
                DataSet.Delete();
            }
    });
}

namespace {

QString TextOf(const QVariant& v) {
    if (!v.isValid() || v.isNull()) return QStringLiteral("(null)");
    if (v.typeId() == QMetaType::QByteArray) return QStringLiteral("(BLOB)");
    if (v.typeId() == QMetaType::Double) return QString::number(v.toDouble(), 'g', QLocale::FloatingPointShortest);
    QString s = v.toString();
    s.replace(u'\r', u' ');
    s.replace(u'\n', u' ');
    s.replace(u'\t', u' ');
    return s;
}

}  // namespace

QString DataSetToStrings(TDLSQLDataSet& DataSet, qint64 LimitBytes,
                         const std::function<void(const QString&)>& Status) {
    if (!DataSet.Active()) return QString();
    const auto status = [&](const char* Format, int Count) {
        if (Status) Status(QString::fromLatin1(Format).arg(Count));
    };
    std::vector<const TField*> columns;
    for (int i = 0; i < DataSet.Fields().Count(); ++i)
        if (DataSet.Fields()[i].FVisible) columns.push_back(&DataSet.Fields()[i]);
    std::vector<qsizetype> widths;
    for (const TField* f : columns) widths.push_back(f->DisplayName().size());
    TControlsDisabled quiet(DataSet);
    // Pass one: the widths. The pass stops where the text would pass the
    // limit, so that a huge result costs no more than what is shown.
    qint64 bytes = 0;
    int rows = 0;
    for (DataSet.First(); !DataSet.Eof() && bytes < LimitBytes; DataSet.Next(), ++rows) {
        if (rows % 1000 == 0) status("Scanning %1 records...", rows);
        for (size_t k = 0; k < columns.size(); ++k) {
            const qsizetype w = TextOf(DataSet.GetFieldValue(*columns[k])).size();
            widths[k] = std::max(widths[k], w);
            bytes += w + 1;
        }
    }
    const bool cut = !DataSet.Eof();
    QString text;
    const auto line = [&](const QStringList& Cells) {
        QString l;
        for (qsizetype k = 0; k < Cells.size(); ++k) {
            if (k) l += u' ';
            l += Cells[k].leftJustified(widths[static_cast<size_t>(k)]);
        }
        while (l.endsWith(u' ')) l.chop(1);
        text += l + u'\n';
    };
    QStringList cells;
    for (const TField* f : columns) cells << f->DisplayName();
    line(cells);
    int written = 0;
    for (DataSet.First(); !DataSet.Eof() && written < rows; DataSet.Next(), ++written) {
        if (written % 1000 == 0) status("Generating %1 records...", written);
        cells.clear();
        for (const TField* f : columns) cells << TextOf(DataSet.GetFieldValue(*f));
        line(cells);
    }
    if (cut)
        text += QStringLiteral("Could not load all records: memory limit of %1 bytes reached.\n").arg(LimitBytes);
    status("Generated %1 records...", written);
    DataSet.First();
    return text;
}

}  // namespace brindle
