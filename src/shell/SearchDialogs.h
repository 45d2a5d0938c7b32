// The find and replace dialogs and the confirmation of one replacement.
#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;

namespace brindle {

struct TSynSearch;

// "Find": the text with its history and the options, read from and back
// into the program's one set of search options.
class TfrmTextSearchDialog : public QDialog {
    Q_OBJECT
public:
    explicit TfrmTextSearchDialog(const TSynSearch& Search, QWidget* Parent = nullptr, bool Replace = false);
    void ReadBack(TSynSearch& Search) const;

    QComboBox *cbSearchText = nullptr, *cbReplaceText = nullptr;
    QCheckBox *cbSearchCaseSensitive, *cbSearchWholeWords, *cbSearchRegex, *cbSearchFromCaret,
        *cbSearchSelectionOnly, *cbSearchBackwards;
};

class TfrmTextReplaceDialog : public TfrmTextSearchDialog {
    Q_OBJECT
public:
    explicit TfrmTextReplaceDialog(const TSynSearch& Search, QWidget* Parent = nullptr)
        : TfrmTextSearchDialog(Search, Parent, true) {}
};

// Asks about one hit: 0 replace, 1 skip, 2 replace all, 3 cancel.
int ConfirmReplace(QWidget* Parent, const QString& Hit);

}  // namespace brindle
