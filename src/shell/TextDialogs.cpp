#include "TextDialogs.h"

#include "Application.h"
#include "FDialogs.h"
#include "data/DataSet.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "interchange/TextExport.h"
#include "interchange/TextImport.h"
#include "tools/Encodings.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QVBoxLayout>

namespace brindle {

// ---------------------------------------------------------------------------
// Delimiter and encoding

class TTextFormatBox : public QWidget {
public:
    explicit TTextFormatBox(QWidget* Parent) : QWidget(Parent) {
        auto* layout = new QHBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);

        auto* delimiters = new QGroupBox(QStringLiteral("Delimiter"), this);
        auto* dl = new QGridLayout(delimiters);
        FDelimiters = new QButtonGroup(this);
        const auto radio = [](QButtonGroup* Group, QWidget* Box, const QString& Caption, const char* Name,
                              int Id) {
            auto* r = new QRadioButton(Caption, Box);
            r->setObjectName(QLatin1String(Name));
            Group->addButton(r, Id);
            return r;
        };
        dl->addWidget(radio(FDelimiters, delimiters, QStringLiteral("Tab"), "rbTab", u'\t'), 0, 0);
        dl->addWidget(radio(FDelimiters, delimiters, QStringLiteral("Semicolon"), "rbSemicolon", u';'), 1, 0);
        dl->addWidget(radio(FDelimiters, delimiters, QStringLiteral("Comma"), "rbComma", u','), 2, 0);
        dl->addWidget(radio(FDelimiters, delimiters, QStringLiteral("Other:"), "rbOther", 0), 3, 0);
        edOther = new QLineEdit(delimiters);
        edOther->setObjectName(QStringLiteral("edOther"));
        edOther->setMaxLength(1);
        edOther->setMaximumWidth(40);
        dl->addWidget(edOther, 3, 1);
        connect(edOther, &QLineEdit::textEdited, this, [this] { FDelimiters->button(0)->setChecked(true); });
        layout->addWidget(delimiters);

        auto* encodings = new QGroupBox(QStringLiteral("Encoding"), this);
        auto* el = new QGridLayout(encodings);
        FEncodings = new QButtonGroup(this);
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("Default ANSI code page"), "rbANSI", 1252),
                      0, 0);
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("UTF-16le"), "rbUTF16LE", 1200), 1, 0);
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("ASCII"), "rbASCII", 20127), 2, 0);
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("UTF-8"), "rbUTF8", 65001), 3, 0);
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("UTF-16be"), "rbUTF16BE", 1201), 4, 0);
        // Files come in more encodings than the five above: a detected one
        // that is none of them is named here rather than misread.
        el->addWidget(radio(FEncodings, encodings, QStringLiteral("Other:"), "rbOtherEncoding", 0), 5, 0);
        cbOtherEncoding = new QComboBox(encodings);
        cbOtherEncoding->setObjectName(QStringLiteral("cbOtherEncoding"));
        cbOtherEncoding->setEditable(true);
        cbOtherEncoding->addItems({QStringLiteral("ISO-8859-1"), QStringLiteral("ISO-8859-2"),
                                   QStringLiteral("windows-1250"), QStringLiteral("windows-1251"),
                                   QStringLiteral("Shift_JIS"), QStringLiteral("EUC-JP"),
                                   QStringLiteral("GB18030"), QStringLiteral("Big5"),
                                   QStringLiteral("EUC-KR"), QStringLiteral("KOI8-R")});
        connect(cbOtherEncoding, &QComboBox::activated, this,
                [this] { FEncodings->button(0)->setChecked(true); });
        el->addWidget(cbOtherEncoding, 5, 1);
        layout->addWidget(encodings);
    }

    char16_t Delimiter() const {
        const int id = FDelimiters->checkedId();
        if (id > 0) return static_cast<char16_t>(id);
        const QString other = edOther->text();
        if (other.isEmpty()) throw ECustomException(QStringLiteral("Please enter the delimiter character."));
        return other.at(0).unicode();
    }
    void SetDelimiter(char16_t Delimiter) {
        if (QAbstractButton* b = FDelimiters->button(Delimiter); b && Delimiter) {
            b->setChecked(true);
        } else {
            edOther->setText(QString(QChar(Delimiter)));
            FDelimiters->button(0)->setChecked(true);
        }
    }
    TEncoding Encoding() const {
        const int id = FEncodings->checkedId();
        if (id == 1252) return TEncoding::Default();
        if (id > 0) return TEncoding::GetEncoding(id);
        return TEncoding::GetEncodingByName(cbOtherEncoding->currentText().trimmed());
    }
    void SetEncoding(const TEncoding& Encoding) {
        const int cp = Encoding == TEncoding::Default() ? 1252 : Encoding.CodePage();
        if (QAbstractButton* b = FEncodings->button(cp); b && cp) {
            b->setChecked(true);
        } else {
            cbOtherEncoding->setCurrentText(Encoding.Name());
            FEncodings->button(0)->setChecked(true);
        }
    }

    QLineEdit* edOther;
    QComboBox* cbOtherEncoding;

private:
    QButtonGroup* FDelimiters;
    QButtonGroup* FEncodings;
};

namespace {

const QString kTextFilter = QStringLiteral("Text files (*.csv *.tsv *.txt);;All files (*)");

}  // namespace

// ---------------------------------------------------------------------------
// The common frame

TfrmTextFile::TfrmTextFile(QWidget* Parent) : QDialog(Parent) {
    edFileName = new QLineEdit(this);
    edFileName->setObjectName(QStringLiteral("edFileName"));
    btnBrowse = new QPushButton(QStringLiteral("..."), this);
    btnBrowse->setObjectName(QStringLiteral("btnBrowse"));
    FFormat = new TTextFormatBox(this);
    mmoLog = new QPlainTextEdit(this);
    mmoLog->setObjectName(QStringLiteral("mmoLog"));
    mmoLog->setReadOnly(true);
    mmoLog->setMinimumHeight(120);
    btnStart = new QPushButton(QStringLiteral("Start"), this);
    btnStart->setObjectName(QStringLiteral("btnStart"));
    btnStart->setDefault(true);
    btnClose = new QPushButton(QStringLiteral("Close"), this);
    btnClose->setObjectName(QStringLiteral("btnClose"));
    connect(btnClose, &QPushButton::clicked, this, &QDialog::reject);
}

TfrmTextFile::~TfrmTextFile() = default;

void TfrmTextFile::LayOut(QWidget* Body) {
    auto* layout = new QVBoxLayout(this);
    auto* file = new QHBoxLayout;
    file->addWidget(new QLabel(QStringLiteral("File name:"), this));
    file->addWidget(edFileName, 1);
    file->addWidget(btnBrowse);
    layout->addLayout(file);
    layout->addWidget(Body);
    layout->addWidget(mmoLog, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(btnStart);
    buttons->addWidget(btnClose);
    layout->addLayout(buttons);
}

char16_t TfrmTextFile::GetDelimiter() const {
    return FFormat->Delimiter();
}

void TfrmTextFile::SetDelimiter(char16_t Delimiter) {
    FFormat->SetDelimiter(Delimiter);
}

TEncoding TfrmTextFile::GetEncoding() const {
    return FFormat->Encoding();
}

void TfrmTextFile::SetEncoding(const TEncoding& Encoding) {
    FFormat->SetEncoding(Encoding);
}

void TfrmTextFile::Log(const QString& Line) {
    mmoLog->appendPlainText(Line);
    mmoLog->verticalScrollBar()->setValue(mmoLog->verticalScrollBar()->maximum());
}

// ---------------------------------------------------------------------------
// Import

TfrmTextImport::TfrmTextImport(TDLSQLiteDatabase& Database, QWidget* Parent)
    : TfrmTextFile(Parent), FDatabase(Database) {
    setObjectName(QStringLiteral("TfrmTextImport"));
    setWindowTitle(QStringLiteral("Import text file (CSV, TSV)"));
    auto* body = new QWidget(this);
    auto* layout = new QVBoxLayout(body);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* dest = new QGroupBox(QStringLiteral("Destination"), body);
    auto* dl = new QGridLayout(dest);
    rbExistingTable = new QRadioButton(QStringLiteral("Existing table:"), dest);
    rbExistingTable->setObjectName(QStringLiteral("rbExistingTable"));
    cbTables = new QComboBox(dest);
    cbTables->setObjectName(QStringLiteral("cbTables"));
    rbNewTable = new QRadioButton(QStringLiteral("New table:"), dest);
    rbNewTable->setObjectName(QStringLiteral("rbNewTable"));
    edNewTable = new QLineEdit(dest);
    edNewTable->setObjectName(QStringLiteral("edNewTable"));
    dl->addWidget(rbExistingTable, 0, 0);
    dl->addWidget(cbTables, 0, 1);
    dl->addWidget(rbNewTable, 1, 0);
    dl->addWidget(edNewTable, 1, 1);
    layout->addWidget(dest);

    layout->addWidget(FFormat);
    cbFieldNames = new QCheckBox(QStringLiteral("Field names on first row"), body);
    cbFieldNames->setObjectName(QStringLiteral("cbFieldNames"));
    cbFieldNames->setChecked(true);
    cbDeleteData = new QCheckBox(QStringLiteral("Delete existing data"), body);
    cbDeleteData->setObjectName(QStringLiteral("cbDeleteData"));
    cbAutoDetect = new QCheckBox(QStringLiteral("Auto detect field types"), body);
    cbAutoDetect->setObjectName(QStringLiteral("cbAutoDetect"));
    cbAutoDetect->setChecked(true);
    for (QCheckBox* c : {cbFieldNames, cbDeleteData, cbAutoDetect}) layout->addWidget(c);
    LayOut(body);

    FFormat->SetDelimiter(u',');
    FFormat->SetEncoding(TEncoding::UTF8());
    UpdateTableList();
    rbNewTable->setChecked(true);

    connect(btnBrowse, &QPushButton::clicked, this, [this] {
        const QString name =
            QFileDialog::getOpenFileName(this, QStringLiteral("Open"), edFileName->text(), kTextFilter,
                                         nullptr, QFileDialog::DontUseNativeDialog);
        if (!name.isEmpty()) SetFileName(name);
    });
    connect(edFileName, &QLineEdit::editingFinished, this, [this] {
        if (edFileName->isModified()) SetFileName(edFileName->text());
        edFileName->setModified(false);
    });
    for (QRadioButton* r : {rbExistingTable, rbNewTable})
        connect(r, &QRadioButton::toggled, this, [this] { UpdateControls(); });
    connect(cbTables, &QComboBox::activated, this, [this] { rbExistingTable->setChecked(true); });
    connect(edNewTable, &QLineEdit::textEdited, this, [this] { rbNewTable->setChecked(true); });
    connect(btnStart, &QPushButton::clicked, this, [this] { ProcessImport(); });
    UpdateControls();
}

TfrmTextImport::~TfrmTextImport() = default;

void TfrmTextImport::UpdateTableList() {
    QStringList names;
    // The main database's tables by their own names, attached ones' with
    // their database's.
    Guarded(this, [&] {
        for (const QString& db : FDatabase.DatabaseNames()) {
            if (db.compare(QLatin1String("temp"), Qt::CaseInsensitive) == 0) continue;
            std::vector<TDLSQLiteDatabase::TNameEntry> entries;
            FDatabase.GetTableNames(db, entries, false, false,
                                    db.compare(QLatin1String("main"), Qt::CaseInsensitive) != 0);
            for (const auto& e : entries) names << e.Name;
        }
    });
    names.sort(Qt::CaseInsensitive);
    const QString current = cbTables->currentText();
    cbTables->clear();
    cbTables->addItems(names);
    cbTables->setCurrentText(current);
    rbExistingTable->setEnabled(!names.isEmpty());
}

void TfrmTextImport::SetFileName(const QString& FileName) {
    edFileName->setText(FileName);
    if (!QFileInfo(FileName).isFile()) return;
    GuessTable();
    DetectEncoding();
    DetectDelimiter();
    DetectFirstLine();
}

void TfrmTextImport::GuessTable() {
    QStringList names;
    for (int i = 0; i < cbTables->count(); ++i) names << cbTables->itemText(i);
    const TTableGuess guess = brindle::GuessTable(edFileName->text(), names);
    if (guess.Exists) {
        cbTables->setCurrentText(guess.TableName);
        rbExistingTable->setChecked(true);
    } else {
        edNewTable->setText(guess.TableName);
        rbNewTable->setChecked(true);
    }
}

void TfrmTextImport::DetectEncoding() {
    FFormat->SetEncoding(GetFileEncoding(edFileName->text()));
}

void TfrmTextImport::DetectDelimiter() {
    Guarded(this,
            [this] { FFormat->SetDelimiter(brindle::DetectDelimiter(edFileName->text(), GetEncoding())); });
}

void TfrmTextImport::DetectFirstLine() {
    Guarded(this, [this] {
        cbFieldNames->setChecked(brindle::DetectFirstLine(edFileName->text(), GetEncoding(), GetDelimiter()));
    });
}

void TfrmTextImport::ImporterProgress(const QString& Message, bool& Canceled) {
    Log(Message);
    // The window stays alive while the rows go in; Stop is one of its clicks.
    QCoreApplication::processEvents();
    if (FCanceled) Canceled = true;
}

void TfrmTextImport::UpdateControls() {
    btnStart->setText(FImporting ? QStringLiteral("Stop") : QStringLiteral("Start"));
    for (QWidget* w :
         std::initializer_list<QWidget*>{edFileName, rbExistingTable, rbNewTable, cbTables, edNewTable,
                                         FFormat, cbFieldNames, cbDeleteData, cbAutoDetect, btnClose})
        w->setEnabled(!FImporting);
    if (!FImporting) {
        cbTables->setEnabled(rbExistingTable->isChecked());
        edNewTable->setEnabled(rbNewTable->isChecked());
        cbDeleteData->setEnabled(rbExistingTable->isChecked());
        rbExistingTable->setEnabled(cbTables->count() > 0);
    }
}

void TfrmTextImport::ProcessImport() {
    if (FImporting) {
        // Stop: the run ends at its next row and rolls the table back.
        FCanceled = true;
        if (FImporter) FImporter->Cancel();
        return;
    }
    TTextImportTarget target;
    target.NewTable = rbNewTable->isChecked();
    target.TableName = (target.NewTable ? edNewTable->text() : cbTables->currentText()).trimmed();
    target.DeleteExistingData = !target.NewTable && cbDeleteData->isChecked();
    target.AutoDetectTypes = cbAutoDetect->isChecked();
    const QString fileName = edFileName->text();
    try {
        if (fileName.isEmpty()) throw ECustomException(QStringLiteral("Please choose the file to import."));
        if (target.TableName.isEmpty())
            throw ECustomException(QStringLiteral("Please enter the table name."));
        const char16_t delimiter = GetDelimiter();
        const TEncoding encoding = GetEncoding();
        QFile file(fileName);
        if (!file.open(QIODevice::ReadOnly))
            throw ECustomException(
                QStringLiteral("Cannot open the file \"%1\": %2").arg(fileName, file.errorString()));
        TTextImporter importer;
        importer.FOnProgress = [this](const QString& Message, bool& Canceled) {
            ImporterProgress(Message, Canceled);
        };
        FImporter = &importer;
        FImporting = true;
        FCanceled = false;
        FImportedTable.clear();
        UpdateControls();
        Log(QStringLiteral("Importing %1 into %2").arg(QFileInfo(fileName).fileName(), target.TableName));
        struct TEnd {
            TfrmTextImport& Form;
            ~TEnd() {
                Form.FImporter = nullptr;
                Form.FImporting = false;
                Form.UpdateControls();
            }
        } end{*this};
        const TTextImportResult result =
            importer.ImportIntoTable(FDatabase, file, target, delimiter, encoding, cbFieldNames->isChecked());
        for (const QString& e : importer.FErrors) Log(e);
        if (result.Canceled) {
            Log(QStringLiteral("Import stopped: the table is as it was."));
            return;
        }
        QString done = QStringLiteral("Done: %1 rows imported").arg(result.RowsImported);
        if (result.RowsSkipped) done += QStringLiteral(", %1 rows skipped").arg(result.RowsSkipped);
        if (result.ShortRows)
            done += QStringLiteral(", %1 rows had fewer values than columns (the rest are NULL)")
                        .arg(result.ShortRows);
        Log(done + u'.');
        FImportedTable = target.TableName;
        UpdateTableList();
    } catch (const std::exception& e) {
        const QString message = ExceptionMessage(e);
        Log(message);
        Log(QStringLiteral("Nothing was imported: the table is as it was."));
        ShowErrorBox(message, this);
    }
}

void TfrmTextImport::reject() {
    // Esc or the window's close while rows go in means Stop, not leave.
    if (FImporting) {
        ProcessImport();
        return;
    }
    QDialog::reject();
}

// ---------------------------------------------------------------------------
// Export

TfrmTextExport::TfrmTextExport(TDataSet& DataSet, const QString& DataSetName, std::vector<int> Records,
                               QWidget* Parent)
    : TfrmTextFile(Parent), FDataSet(DataSet), FDataSetName(DataSetName), FRecords(std::move(Records)) {
    setObjectName(QStringLiteral("TfrmTextExport"));
    setWindowTitle(QStringLiteral("Export to text file (CSV, TSV)"));
    auto* body = new QWidget(this);
    auto* layout = new QVBoxLayout(body);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(FFormat);
    cbWritePreamble = new QCheckBox(QStringLiteral("Write encoding preamble"), body);
    cbWritePreamble->setObjectName(QStringLiteral("cbWritePreamble"));
    cbWritePreamble->setChecked(true);
    layout->addWidget(cbWritePreamble);
    cbSelectedOnly = new QCheckBox(QStringLiteral("Selected rows only (%1)").arg(FRecords.size()), body);
    cbSelectedOnly->setObjectName(QStringLiteral("cbSelectedOnly"));
    cbSelectedOnly->setVisible(!FRecords.empty());
    cbSelectedOnly->setChecked(!FRecords.empty());
    layout->addWidget(cbSelectedOnly);
    LayOut(body);

    FFormat->SetDelimiter(u',');
    // UTF-8 holds every text a database can; an ANSI code page would turn
    // what it lacks into question marks.
    FFormat->SetEncoding(TEncoding::UTF8());
    if (!DataSetName.isEmpty()) SetTextFileName(DataSetName + QStringLiteral(".csv"));

    connect(btnBrowse, &QPushButton::clicked, this, [this] {
        const QString name =
            QFileDialog::getSaveFileName(this, QStringLiteral("Save As"), edFileName->text(), kTextFilter,
                                         nullptr, QFileDialog::DontUseNativeDialog);
        if (!name.isEmpty()) SetTextFileName(name);
    });
    connect(btnStart, &QPushButton::clicked, this, [this] { ProcessExport(); });
}

TfrmTextExport::~TfrmTextExport() = default;

QString TfrmTextExport::GetTextFileName() const {
    return edFileName->text();
}

void TfrmTextExport::SetTextFileName(const QString& FileName) {
    edFileName->setText(FileName);
}

void TfrmTextExport::ExporterProgress(int Count) {
    // One line that counts, not a line per step.
    QTextCursor cursor = mmoLog->textCursor();
    cursor.movePosition(QTextCursor::End);
    cursor.select(QTextCursor::LineUnderCursor);
    const QString text = QStringLiteral("%1 records exported").arg(Count);
    if (cursor.selectedText().endsWith(QLatin1String(" records exported")))
        cursor.insertText(text);
    else
        Log(text);
    QCoreApplication::processEvents();
}

void TfrmTextExport::ProcessExport() {
    if (FExporter) {
        FExporter->Cancel();
        return;
    }
    try {
        const QString fileName = GetTextFileName();
        if (fileName.isEmpty())
            throw ECustomException(QStringLiteral("Please choose the file to export to."));
        const char16_t delimiter = GetDelimiter();
        const TEncoding encoding = GetEncoding();
        std::unique_ptr<TTextExporter> exporter;
        if (delimiter == u'\t')
            exporter = std::make_unique<TTSVExporter>(&FDataSet);
        else
            exporter = std::make_unique<TCSVExporter>(&FDataSet);
        exporter->FDelimiter = delimiter;
        exporter->FEncoding = encoding;
        exporter->FWriteEncodingPreamble = cbWritePreamble->isChecked();
        if (!FRecords.empty() && cbSelectedOnly->isChecked()) exporter->FRecordNumbers = FRecords;
        QStringList notes;
        exporter->FErrorLog = &notes;
        exporter->FOnProgress = [this](int Count) { ExporterProgress(Count); };
        FExporter = exporter.get();
        btnStart->setText(QStringLiteral("Stop"));
        btnClose->setEnabled(false);
        struct TEnd {
            TfrmTextExport& Form;
            ~TEnd() {
                Form.FExporter = nullptr;
                Form.btnStart->setText(QStringLiteral("Start"));
                Form.btnClose->setEnabled(true);
            }
        } end{*this};
        Log(QStringLiteral("Exporting %1 to %2").arg(FDataSetName, QFileInfo(fileName).fileName()));
        exporter->Export(fileName);
        for (const QString& n : notes) Log(n);
        if (exporter->Canceled())
            Log(QStringLiteral("Export stopped: no file was written."));
        else
            Log(QStringLiteral("Done: %1 records exported.").arg(exporter->RecordCount()));
    } catch (const std::exception& e) {
        const QString message = ExceptionMessage(e);
        Log(message);
        ShowErrorBox(message, this);
    }
}

void TfrmTextExport::reject() {
    if (FExporter) {
        FExporter->Cancel();
        return;
    }
    QDialog::reject();
}

}  // namespace brindle
