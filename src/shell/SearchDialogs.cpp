#include "SearchDialogs.h"

#include "workbench/TextSearch.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace brindle {

namespace {

QComboBox* HistoryCombo(const QString& Text, const QString& History, QWidget* Parent) {
    auto* combo = new QComboBox(Parent);
    combo->setEditable(true);
    combo->setInsertPolicy(QComboBox::NoInsert);
    combo->addItems(SearchHistoryItems(History));
    combo->setEditText(Text);
    combo->setMinimumWidth(300);
    return combo;
}

}  // namespace

TfrmTextSearchDialog::TfrmTextSearchDialog(const TSynSearch& Search, QWidget* Parent, bool Replace)
    : QDialog(Parent) {
    setWindowTitle(Replace ? QStringLiteral("Replace text") : QStringLiteral("Find text"));
    setObjectName(Replace ? QStringLiteral("TfrmTextReplaceDialog") : QStringLiteral("TfrmTextSearchDialog"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    cbSearchText = HistoryCombo(Search.gsSearchText, Search.gsSearchTextHistory, this);
    cbSearchText->setObjectName(QStringLiteral("cbSearchText"));
    form->addRow(QStringLiteral("&Search for:"), cbSearchText);
    if (Replace) {
        cbReplaceText = HistoryCombo(Search.gsReplaceText, Search.gsReplaceTextHistory, this);
        cbReplaceText->setObjectName(QStringLiteral("cbReplaceText"));
        form->addRow(QStringLiteral("&Replace with:"), cbReplaceText);
    }
    layout->addLayout(form);
    auto box = [this, layout](const QString& Text, bool Value) {
        auto* c = new QCheckBox(Text, this);
        c->setChecked(Value);
        layout->addWidget(c);
        return c;
    };
    cbSearchCaseSensitive = box(QStringLiteral("C&ase sensitivity"), Search.gbSearchCaseSensitive);
    cbSearchWholeWords = box(QStringLiteral("&Whole words only"), Search.gbSearchWholeWords);
    cbSearchRegex = box(QStringLiteral("Regular e&xpression"), Search.gbSearchRegex);
    cbSearchFromCaret = box(QStringLiteral("Search from &caret"), Search.gbSearchFromCaret);
    cbSearchSelectionOnly = box(QStringLiteral("Selected &text only"), Search.gbSearchSelectionOnly);
    cbSearchBackwards = box(QStringLiteral("Search &backwards"), Search.gbSearchBackwards);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

void TfrmTextSearchDialog::ReadBack(TSynSearch& Search) const {
    Search.gsSearchText = cbSearchText->currentText();
    Search.gsSearchTextHistory = GetSearchTextHistory(Search.gsSearchText, Search.gsSearchTextHistory);
    if (cbReplaceText) {
        Search.gsReplaceText = cbReplaceText->currentText();
        Search.gsReplaceTextHistory = GetSearchTextHistory(Search.gsReplaceText, Search.gsReplaceTextHistory);
    }
    Search.gbSearchCaseSensitive = cbSearchCaseSensitive->isChecked();
    Search.gbSearchWholeWords = cbSearchWholeWords->isChecked();
    Search.gbSearchRegex = cbSearchRegex->isChecked();
    Search.gbSearchFromCaret = cbSearchFromCaret->isChecked();
    Search.gbSearchSelectionOnly = cbSearchSelectionOnly->isChecked();
    Search.gbSearchBackwards = cbSearchBackwards->isChecked();
}

int ConfirmReplace(QWidget* Parent, const QString& Hit) {
    QMessageBox box(QMessageBox::Question, QStringLiteral("Confirm replace"),
                    QStringLiteral("Replace this occurrence of \"%1\"?").arg(Hit), QMessageBox::NoButton, Parent);
    QPushButton* replace = box.addButton(QStringLiteral("&Yes"), QMessageBox::YesRole);
    QPushButton* skip = box.addButton(QStringLiteral("&No"), QMessageBox::NoRole);
    QPushButton* all = box.addButton(QStringLiteral("Yes to &all"), QMessageBox::YesRole);
    box.addButton(QStringLiteral("&Cancel"), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() == replace) return 0;
    if (box.clickedButton() == skip) return 1;
    if (box.clickedButton() == all) return 2;
    return 3;
}

}  // namespace brindle
