#include "FieldMapping.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

namespace brindle {

void DefaultFieldMapping(const QStringList& SourceFields, const QStringList& DestFields,
                         QStringList& MappedSource, QStringList& MappedDest) {
    MappedSource.clear();
    MappedDest.clear();
    // A source taken by name is not offered by place as well.
    QList<bool> takenByName(SourceFields.size(), false);
    QList<int> byName(DestFields.size(), -1);
    for (int d = 0; d < DestFields.size(); ++d)
        for (int s = 0; s < SourceFields.size(); ++s)
            if (!takenByName[s] && SourceFields[s].compare(DestFields[d], Qt::CaseInsensitive) == 0) {
                byName[d] = s;
                takenByName[s] = true;
                break;
            }
    for (int d = 0; d < DestFields.size(); ++d) {
        int s = byName[d];
        if (s < 0 && d < SourceFields.size() && !takenByName[d]) s = d;
        if (s < 0) continue;
        MappedSource << SourceFields[s];
        MappedDest << DestFields[d];
    }
}

TfrmFieldMapping::TfrmFieldMapping(const QString& Caption, const QStringList& SourceFields,
                                   const QStringList& DestFields, QWidget* Parent)
    : QDialog(Parent), FSourceFields(SourceFields), FDestFields(DestFields) {
    setObjectName(QStringLiteral("TfrmFieldMapping"));
    setWindowTitle(QStringLiteral("Field Mapping"));
    resize(480, 400);
    auto* layout = new QVBoxLayout(this);
    lblCaption = new QLabel(Caption, this);
    lblCaption->setObjectName(QStringLiteral("lblCaption"));
    lblCaption->setWordWrap(true);
    layout->addWidget(lblCaption);
    grdMapping = new QTableWidget(static_cast<int>(DestFields.size()), 2, this);
    grdMapping->setObjectName(QStringLiteral("grdMapping"));
    grdMapping->setHorizontalHeaderLabels({QStringLiteral("Destination"), QStringLiteral("Source")});
    grdMapping->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    grdMapping->verticalHeader()->setVisible(false);
    QStringList choices = SourceFields;
    choices.prepend(QString());
    for (int d = 0; d < DestFields.size(); ++d) {
        auto* dest = new QTableWidgetItem(DestFields[d]);
        dest->setFlags(Qt::ItemIsEnabled);
        grdMapping->setItem(d, 0, dest);
        auto* source = new QComboBox(grdMapping);
        source->addItems(choices);
        grdMapping->setCellWidget(d, 1, source);
    }
    layout->addWidget(grdMapping, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

void TfrmFieldMapping::SetMapping(const QStringList& MappedSource, const QStringList& MappedDest) {
    for (int d = 0; d < FDestFields.size(); ++d) {
        auto* box = static_cast<QComboBox*>(grdMapping->cellWidget(d, 1));
        const int pair = MappedDest.indexOf(FDestFields[d]);
        const int source = pair >= 0 && pair < MappedSource.size() ? FSourceFields.indexOf(MappedSource[pair]) : -1;
        box->setCurrentIndex(source + 1);
    }
}

void TfrmFieldMapping::GetMapping(QStringList& MappedSource, QStringList& MappedDest) const {
    MappedSource.clear();
    MappedDest.clear();
    for (int d = 0; d < FDestFields.size(); ++d) {
        const int source = static_cast<QComboBox*>(grdMapping->cellWidget(d, 1))->currentIndex() - 1;
        if (source < 0) continue;
        MappedSource << FSourceFields[source];
        MappedDest << FDestFields[d];
    }
}

bool TfrmFieldMapping::Execute(QWidget* Parent, const QString& Caption, const QStringList& SourceFields,
                               const QStringList& DestFields, QStringList& MappedSource, QStringList& MappedDest) {
    TfrmFieldMapping dialog(Caption, SourceFields, DestFields, Parent);
    QStringList source, dest;
    DefaultFieldMapping(SourceFields, DestFields, source, dest);
    dialog.SetMapping(source, dest);
    if (dialog.exec() != QDialog::Accepted) return false;
    dialog.GetMapping(MappedSource, MappedDest);
    return true;
}

}  // namespace brindle
