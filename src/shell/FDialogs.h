// The small dialogs of the database commands: the question about an open
// transaction, a new database, a database's registration, and the encoding
// of a new, empty file. Each keeps the user's answer in its members; the
// flows that act on it are elsewhere.
#pragma once

#include <QDialog>
#include <QString>

class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QLabel;
class QLineEdit;

namespace brindle {

// Commit, Rollback or Cancel. Answer keeps 3 (cancel) unless a button
// other than Cancel ends it.
class TfrmTransactionPrompt : public QDialog {
    Q_OBJECT
public:
    TfrmTransactionPrompt(const QString& Text, QWidget* Parent = nullptr);
    int Answer = 3;
};

// The file dialog of the database commands: a filter in the form
// "Label (*.a, *.b)|*.a;*.b|...", the folder to start in, the title and the
// extension added to a name typed without one. Empty when cancelled.
QString SelectDatabaseFile(QWidget* Parent, const QString& Title, const QString& Folder,
                           const QString& Filter, bool MustExist);
// "Label (*.a, *.b)|*.a;*.b|Any File (*.*)|*.*" as the toolkit's filter.
QString ToDialogFilter(const QString& Filter);

class TfrmCreateDB : public QDialog {
    Q_OBJECT
public:
    // PickAlias proposes an alias for a file; SupportsEncryption shows the
    // key fields.
    TfrmCreateDB(std::function<QString(const QString&)> PickAlias, bool SupportsEncryption,
                 const QString& Folder, const QString& Filter, QWidget* Parent = nullptr);

    QString FileName() const;
    QString Alias() const;
    QString Key() const;
    QString Encoding() const;
    QString PageSize() const;
    QString AutoVacuum() const;

    QLineEdit* edFileName;
    QLineEdit* edAlias;
    QLineEdit* edKey;
    QLineEdit* edConfirmKey;
    QCheckBox* cbShowChars;
    QComboBox* cbEncoding;
    QComboBox* cbPageSize;
    QComboBox* cbAutoVacuum;

    void accept() override;

private:
    void Browse();
    std::function<QString(const QString&)> FPickAlias;
    QString FFolder, FFilter;
    QDialogButtonBox* FButtons;
};

class TfrmDBReg : public QDialog {
    Q_OBJECT
public:
    TfrmDBReg(std::function<QString(const QString&)> PickAlias, const QString& FileName, const QString& Alias,
              const QString& Filter, QWidget* Parent = nullptr);

    QString FileName() const;
    QString Alias() const;

    QLineEdit* edDatabaseFile;
    QLineEdit* edDatabaseAlias;

    // With no file yet, browses before the dialog shows; false when that
    // was cancelled, and the dialog then is not shown at all.
    bool BrowseIfEmpty();

private:
    void Browse();
    void UpdateOK();
    std::function<QString(const QString&)> FPickAlias;
    QString FFilter;
    QDialogButtonBox* FButtons;
};

// The encodings a new database may take.
QStringList DatabaseEncodings();

// A list of the encodings under the caption "Select encoding for " + file.
class TfrmSelectEncoding : public QDialog {
    Q_OBJECT
public:
    TfrmSelectEncoding(const QString& Caption, const QString& Encoding, QWidget* Parent = nullptr);
    QString Encoding() const;
    QComboBox* cbEncoding;
};

}  // namespace brindle
