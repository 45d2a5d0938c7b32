// Which source field fills which destination field: the mapping a user
// confirms before data moves between two sets of columns (a virtual table
// rebuilt, a text file imported). The window shows each destination field
// with a box of source fields; the choice comes back as two lists of equal
// length, source and destination names pair by pair.
#pragma once

#include <QDialog>
#include <QStringList>

class QLabel;
class QTableWidget;

namespace brindle {

// The mapping before the user changes it: each destination takes the source
// field of the same name (case ignored), else the source at its own place
// when that one is not taken by name elsewhere; a destination with neither
// stays unmapped.
void DefaultFieldMapping(const QStringList& SourceFields, const QStringList& DestFields,
                         QStringList& MappedSource, QStringList& MappedDest);

class TfrmFieldMapping : public QDialog {
    Q_OBJECT

public:
    // Caption is the text above the lists, the caller's own words.
    TfrmFieldMapping(const QString& Caption, const QStringList& SourceFields, const QStringList& DestFields,
                     QWidget* Parent = nullptr);
    // Pairs to show; a destination not among them shows no source.
    void SetMapping(const QStringList& MappedSource, const QStringList& MappedDest);
    // The pairs chosen, in destination order, unmapped ones left out.
    void GetMapping(QStringList& MappedSource, QStringList& MappedDest) const;
    // Shows the window with the default mapping; false when cancelled.
    static bool Execute(QWidget* Parent, const QString& Caption, const QStringList& SourceFields,
                        const QStringList& DestFields, QStringList& MappedSource, QStringList& MappedDest);

    QLabel* lblCaption;
    // Column 0 the destination field, column 1 a box of source fields whose
    // first entry (empty) maps nothing.
    QTableWidget* grdMapping;

private:
    QStringList FSourceFields, FDestFields;
};

}  // namespace brindle
