#include "FDialogs.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>

namespace brindle {

namespace {

// A file field with its browse button, as one row of the form.
QPushButton* AddFileRow(QDialog* Dialog, QFormLayout* Form, const QString& Label, QLineEdit* Edit) {
    auto* browse = new QPushButton(QStringLiteral("..."), Dialog);
    browse->setObjectName(QStringLiteral("btnBrowse"));
    auto* row = new QHBoxLayout;
    row->addWidget(Edit, 1);
    row->addWidget(browse);
    Form->addRow(Label, row);
    return browse;
}

// The form with OK and Cancel below it.
QDialogButtonBox* LayOut(QDialog* Dialog, QFormLayout* Form) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, Dialog);
    auto* layout = new QVBoxLayout(Dialog);
    layout->addLayout(Form);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, Dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, Dialog, &QDialog::reject);
    return buttons;
}

}  // namespace

TfrmTransactionPrompt::TfrmTransactionPrompt(const QString& Text, QWidget* Parent) : QDialog(Parent) {
    setObjectName(QStringLiteral("TfrmTransactionPrompt"));
    setWindowTitle(QStringLiteral("Active transaction"));
    auto* layout = new QVBoxLayout(this);
    QString text = Text;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    auto* label = new QLabel(text, this);
    label->setObjectName(QStringLiteral("lblPrompt"));
    layout->addWidget(label);
    auto* buttons = new QDialogButtonBox(this);
    auto add = [&](const QString& caption, int answer, QDialogButtonBox::ButtonRole role) {
        QPushButton* b = buttons->addButton(caption, role);
        b->setObjectName(QStringLiteral("btn") + QString(caption).remove(u'&'));
        connect(b, &QPushButton::clicked, this, [this, answer] {
            Answer = answer;
            answer == 3 ? reject() : accept();
        });
    };
    add(QStringLiteral("&Commit"), 1, QDialogButtonBox::AcceptRole);
    add(QStringLiteral("&Rollback"), 2, QDialogButtonBox::DestructiveRole);
    add(QStringLiteral("Cancel"), 3, QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
}

QString ToDialogFilter(const QString& Filter) {
    const QStringList parts = Filter.split(u'|');
    QStringList filters;
    static const QRegularExpression tail(QStringLiteral("\\s*\\([^)]*\\)\\s*$"));
    for (int i = 0; i + 1 < parts.size(); i += 2) {
        QString label = parts[i];
        label.remove(tail);
        QString patterns = parts[i + 1];
        patterns.replace(u';', u' ');
        if (patterns == QLatin1String("*.*")) patterns = QStringLiteral("*");
        filters << QStringLiteral("%1 (%2)").arg(label, patterns);
    }
    return filters.join(QStringLiteral(";;"));
}

QString SelectDatabaseFile(QWidget* Parent, const QString& Title, const QString& Folder,
                           const QString& Filter, bool MustExist) {
    QFileDialog dialog(Parent, Title, Folder, ToDialogFilter(Filter));
    // The toolkit's own dialog looks the same everywhere, and tests can
    // drive it.
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setDefaultSuffix(QStringLiteral("db3"));
    dialog.setFileMode(MustExist ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
    dialog.setAcceptMode(MustExist ? QFileDialog::AcceptOpen : QFileDialog::AcceptSave);
    if (!MustExist) dialog.setOption(QFileDialog::DontConfirmOverwrite);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return QString();
    return dialog.selectedFiles().first();
}

QStringList DatabaseEncodings() {
    return {QStringLiteral("UTF-8"), QStringLiteral("UTF-16"), QStringLiteral("UTF-16le"),
            QStringLiteral("UTF-16be")};
}

TfrmCreateDB::TfrmCreateDB(std::function<QString(const QString&)> PickAlias, bool SupportsEncryption,
                           const QString& Folder, const QString& Filter, QWidget* Parent)
    : QDialog(Parent), FPickAlias(std::move(PickAlias)), FFolder(Folder), FFilter(Filter) {
    setObjectName(QStringLiteral("TfrmCreateDB"));
    setWindowTitle(QStringLiteral("New Database"));
    auto* form = new QFormLayout;
    edFileName = new QLineEdit(this);
    edFileName->setObjectName(QStringLiteral("edFileName"));
    QPushButton* browse = AddFileRow(this, form, QStringLiteral("File name:"), edFileName);
    edAlias = new QLineEdit(this);
    edAlias->setObjectName(QStringLiteral("edAlias"));
    form->addRow(QStringLiteral("Alias:"), edAlias);
    edKey = new QLineEdit(this);
    edKey->setObjectName(QStringLiteral("edKey"));
    edKey->setEchoMode(QLineEdit::Password);
    edConfirmKey = new QLineEdit(this);
    edConfirmKey->setObjectName(QStringLiteral("edConfirmKey"));
    edConfirmKey->setEchoMode(QLineEdit::Password);
    cbShowChars = new QCheckBox(QStringLiteral("Show characters"), this);
    cbShowChars->setObjectName(QStringLiteral("cbShowChars"));
    form->addRow(QStringLiteral("Encryption key:"), edKey);
    form->addRow(QStringLiteral("Confirm key:"), edConfirmKey);
    form->addRow(QString(), cbShowChars);
    for (QWidget* w : {static_cast<QWidget*>(edKey), static_cast<QWidget*>(edConfirmKey),
                       static_cast<QWidget*>(cbShowChars)}) {
        w->setVisible(SupportsEncryption);
        if (QWidget* label = form->labelForField(w)) label->setVisible(SupportsEncryption);
    }
    cbEncoding = new QComboBox(this);
    cbEncoding->setObjectName(QStringLiteral("cbEncoding"));
    cbEncoding->addItems(DatabaseEncodings());
    form->addRow(QStringLiteral("Encoding:"), cbEncoding);
    cbPageSize = new QComboBox(this);
    cbPageSize->setObjectName(QStringLiteral("cbPageSize"));
    for (int size = 512; size <= 32768; size *= 2) cbPageSize->addItem(QString::number(size));
    // The engine's own default page size.
    cbPageSize->setCurrentText(QStringLiteral("4096"));
    form->addRow(QStringLiteral("Page size:"), cbPageSize);
    cbAutoVacuum = new QComboBox(this);
    cbAutoVacuum->setObjectName(QStringLiteral("cbAutoVacuum"));
    cbAutoVacuum->addItems({QStringLiteral("0"), QStringLiteral("1")});
    form->addRow(QStringLiteral("Auto vacuum:"), cbAutoVacuum);

    FButtons = LayOut(this, form);
    connect(browse, &QPushButton::clicked, this, &TfrmCreateDB::Browse);
    connect(cbShowChars, &QCheckBox::toggled, this, [this](bool show) {
        edKey->setEchoMode(show ? QLineEdit::Normal : QLineEdit::Password);
        edConfirmKey->setEchoMode(show ? QLineEdit::Normal : QLineEdit::Password);
    });
    auto updateOK = [this] {
        FButtons->button(QDialogButtonBox::Ok)->setEnabled(!FileName().isEmpty() && !Alias().isEmpty());
    };
    connect(edFileName, &QLineEdit::textChanged, this, [this, updateOK] {
        // The alias follows the file until the user types one of their own.
        if (edAlias->property("typed").toBool() == false && FPickAlias)
            edAlias->setText(FPickAlias(FileName()));
        updateOK();
    });
    connect(edAlias, &QLineEdit::textEdited, this, [this] { edAlias->setProperty("typed", true); });
    connect(edAlias, &QLineEdit::textChanged, this, updateOK);
    updateOK();
}

void TfrmCreateDB::Browse() {
    const QString file =
        SelectDatabaseFile(this, QStringLiteral("Enter file name for new database"), FFolder, FFilter, false);
    if (!file.isEmpty()) edFileName->setText(file);
}

void TfrmCreateDB::accept() {
    if (edKey->isVisible() && edKey->text() != edConfirmKey->text()) {
        QMessageBox::warning(this, windowTitle(), QStringLiteral("The encryption keys do not match!"));
        return;
    }
    QDialog::accept();
}

QString TfrmCreateDB::FileName() const {
    return edFileName->text().trimmed();
}
QString TfrmCreateDB::Alias() const {
    return edAlias->text().trimmed();
}
QString TfrmCreateDB::Key() const {
    return edKey->isVisibleTo(this) ? edKey->text() : QString();
}
QString TfrmCreateDB::Encoding() const {
    return cbEncoding->currentText();
}
QString TfrmCreateDB::PageSize() const {
    return cbPageSize->currentText();
}
QString TfrmCreateDB::AutoVacuum() const {
    return cbAutoVacuum->currentText();
}

TfrmDBReg::TfrmDBReg(std::function<QString(const QString&)> PickAlias, const QString& FileName,
                     const QString& Alias, const QString& Filter, QWidget* Parent)
    : QDialog(Parent), FPickAlias(std::move(PickAlias)), FFilter(Filter) {
    setObjectName(QStringLiteral("TfrmDBReg"));
    setWindowTitle(QStringLiteral("Database Registration"));
    auto* form = new QFormLayout;
    edDatabaseFile = new QLineEdit(FileName, this);
    edDatabaseFile->setObjectName(QStringLiteral("edDatabaseFile"));
    QPushButton* browse = AddFileRow(this, form, QStringLiteral("Database file:"), edDatabaseFile);
    edDatabaseAlias = new QLineEdit(Alias, this);
    edDatabaseAlias->setObjectName(QStringLiteral("edDatabaseAlias"));
    form->addRow(QStringLiteral("Alias:"), edDatabaseAlias);
    FButtons = LayOut(this, form);
    connect(browse, &QPushButton::clicked, this, &TfrmDBReg::Browse);
    connect(edDatabaseFile, &QLineEdit::textChanged, this, &TfrmDBReg::UpdateOK);
    connect(edDatabaseAlias, &QLineEdit::textChanged, this, &TfrmDBReg::UpdateOK);
    UpdateOK();
}

void TfrmDBReg::UpdateOK() {
    FButtons->button(QDialogButtonBox::Ok)->setEnabled(!FileName().isEmpty() && !Alias().isEmpty());
}

void TfrmDBReg::Browse() {
    const QString file = SelectDatabaseFile(this, QStringLiteral("Select database file"),
                                            QFileInfo(FileName()).absolutePath(), FFilter, true);
    if (file.isEmpty()) return;
    edDatabaseFile->setText(file);
    if (Alias().isEmpty() && FPickAlias) edDatabaseAlias->setText(FPickAlias(file));
}

bool TfrmDBReg::BrowseIfEmpty() {
    if (!FileName().isEmpty()) return true;
    Browse();
    return !FileName().isEmpty();
}

QString TfrmDBReg::FileName() const {
    return edDatabaseFile->text().trimmed();
}
QString TfrmDBReg::Alias() const {
    return edDatabaseAlias->text().trimmed();
}

TfrmSelectEncoding::TfrmSelectEncoding(const QString& Caption, const QString& Encoding, QWidget* Parent)
    : QDialog(Parent) {
    setObjectName(QStringLiteral("TfrmSelectEncoding"));
    setWindowTitle(Caption);
    auto* layout = new QVBoxLayout(this);
    cbEncoding = new QComboBox(this);
    cbEncoding->setObjectName(QStringLiteral("cbEncoding"));
    cbEncoding->addItems(DatabaseEncodings());
    cbEncoding->setCurrentText(Encoding);
    layout->addWidget(new QLabel(QStringLiteral("Encoding:"), this));
    layout->addWidget(cbEncoding);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

QString TfrmSelectEncoding::Encoding() const {
    return cbEncoding->currentText();
}

}  // namespace brindle
