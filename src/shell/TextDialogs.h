// The windows that move delimited text in and out: a file into a table of
// a database, and a dataset (a table, a query's result, chosen rows) out to
// a file. The work is the interchange layer's; these windows gather the
// choices, show the progress and give the stop.
#pragma once

#include "engine/Encoding.h"

#include <QDialog>
#include <functional>
#include <vector>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;

namespace brindle {

class TDataSet;
class TDLSQLiteDatabase;
class TDataSetExporter;
class TTextImporter;

// The delimiter and encoding choices both windows offer.
class TTextFormatBox;

// What both windows have: a file, its delimiter and encoding, a log, and
// Start and Close.
class TfrmTextFile : public QDialog {
    Q_OBJECT

public:
    QLineEdit* edFileName;
    QPlainTextEdit* mmoLog;
    QPushButton *btnStart, *btnClose;

    // Throws for an "Other:" delimiter left empty or an unknown encoding.
    char16_t GetDelimiter() const;
    void SetDelimiter(char16_t Delimiter);
    TEncoding GetEncoding() const;
    void SetEncoding(const TEncoding& Encoding);

protected:
    explicit TfrmTextFile(QWidget* Parent);
    ~TfrmTextFile() override;
    // The file row, the format choices and then Body, the log, the buttons.
    void LayOut(QWidget* Body);
    void Log(const QString& Line);

    QPushButton* btnBrowse;
    TTextFormatBox* FFormat;
};

class TfrmTextImport : public TfrmTextFile {
    Q_OBJECT

public:
    // The database must outlive the window.
    explicit TfrmTextImport(TDLSQLiteDatabase& Database, QWidget* Parent = nullptr);
    ~TfrmTextImport() override;

    QRadioButton *rbExistingTable, *rbNewTable;
    QComboBox* cbTables;
    QLineEdit* edNewTable;
    QCheckBox *cbFieldNames, *cbDeleteData, *cbAutoDetect;

    // The file's guesses: table, encoding, delimiter, header.
    void SetFileName(const QString& FileName);
    // Starts the import (or stops the one running).
    void ProcessImport();
    bool Importing() const { return FImporting; }
    // The table rows went to by the last import that ended well.
    const QString& ImportedTable() const { return FImportedTable; }

protected:
    void reject() override;

private:
    void UpdateTableList();
    void GuessTable();
    void DetectEncoding();
    void DetectDelimiter();
    void DetectFirstLine();
    void ImporterProgress(const QString& Message, bool& Canceled);
    void UpdateControls();

    TDLSQLiteDatabase& FDatabase;
    bool FImporting = false;
    bool FCanceled = false;
    QString FImportedTable;
    TTextImporter* FImporter = nullptr;  // the running one, on the stack of ProcessImport
};

class TfrmTextExport : public TfrmTextFile {
    Q_OBJECT

public:
    // The dataset must outlive the window. Records, when given, are the
    // record numbers (from 1) that "Selected rows only" exports.
    TfrmTextExport(TDataSet& DataSet, const QString& DataSetName, std::vector<int> Records = {},
                   QWidget* Parent = nullptr);
    ~TfrmTextExport() override;

    QCheckBox *cbWritePreamble, *cbSelectedOnly;

    QString GetTextFileName() const;
    void SetTextFileName(const QString& FileName);
    void ProcessExport();
    bool Exporting() const { return FExporter != nullptr; }

protected:
    void reject() override;

private:
    void ExporterProgress(int Count);

    TDataSet& FDataSet;
    QString FDataSetName;
    std::vector<int> FRecords;
    TDataSetExporter* FExporter = nullptr;  // the running one, on the stack of ProcessExport
};

}  // namespace brindle
