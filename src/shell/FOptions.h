// The options dialog. It edits a copy of the settings; nothing takes effect
// before OK, and then the main window applies what changed.
#pragma once

#include "ProgramSettings.h"
#include "RegSettings.h"
#include "engine/DLTypeMapping.h"

#include <QColor>
#include <QDialog>
#include <QFont>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QSpinBox;
class QStackedWidget;
class QTableWidget;
class QTreeWidget;

namespace brindle {

struct TLibraryEntry;

// Colours as the store keeps them, 0x00BBGGRR, and back.
int ColorValue(const QColor& Color);
QColor StoredColor(int Value);

// What the dialog edits.
struct TOptionsData {
    TProgramSettings Settings;
    TFeatureList Features;
    TDLTypeMappings TypeMappings;
    QFont DefaultFont, EditorFont;
    QString DefaultCodeTemplates;
    // Extensions associated now, and those checked when the dialog closed.
    QStringList AssociatedExtensions, CheckedExtensions;
};

class TfrmOptions : public QDialog {
    Q_OBJECT
public:
    static const QStringList kPages;

    TfrmOptions(const TOptionsData& Data, const QList<TLibraryEntry>& Libraries, QWidget* Parent = nullptr);
    // The edited copy; valid after OK.
    const TOptionsData& Data() const { return FData; }
    // The page shown now, by its index in kPages.
    int CurrentPage() const;
    void SetCurrentPage(int Page);

    void accept() override;

    // The name of a field type as the mappings page shows it, and back; 0
    // (unknown) for a name that is no type a table may hold.
    static QString DataTypeName(TFieldType Type);
    static TFieldType StrToDataType(const QString& Name);

    QListWidget* lbPages;
    QTreeWidget* tvFeatures;
    QRadioButton *rbUnicode, *rbAnsi;
    QCheckBox *cbSingleInstance, *cbRememberOpenDatabases, *cbUseLargeIcons, *cbEditorWordWrap;
    QSpinBox* seTabWidth;
    QCheckBox *cbConfirmDragDrop, *cbConfirmCopyPasteObjects, *cbConfirmCopyPasteProperties;
    QListWidget* lbLookAndFeel;
    QRadioButton *rbBrackets, *rbDoubleQuotes, *rbUpperCase, *rbLowerCase;
    QListWidget* lbLibraries;
    QCheckBox *cbAlternateRowColors, *cbAutoRefreshData, *cbShowCellHints, *cbShowImages,
        *cbShowRecordNumbers, *cbShowRowID, *cbDblClickRecordEditor, *cbCellAutoHeight, *cbThumbTracking,
        *cbShowRecordCount;
    QRadioButton *rbResultsAsGrid, *rbResultsAsText;
    QSpinBox* seTextLimit;
    QPushButton *btnOddColor, *btnEvenColor;
    QTableWidget* grdTypeMappings;
    QPushButton *btnApplicationFont, *btnEditorFont;
    QRadioButton *rbNeverCheck, *rbCheckEvery;
    QSpinBox* seCheckDays;
    QListWidget* lbExtensions;
    QCheckBox *cbCodeCompletion, *cbAutoInvoke, *cbTemplateCompletion;
    QComboBox* cbDelay;
    QPlainTextEdit* mmoTemplates;

private:
    QWidget* CreateFeaturesPage();
    QWidget* CreateGeneralPage();
    QWidget* CreateLookAndFeelPage();
    QWidget* CreateCodeGenerationPage();
    QWidget* CreateDataPage(const QList<TLibraryEntry>& Libraries);
    QWidget* CreateTypeMappingsPage();
    QWidget* CreateFontsPage();
    QWidget* CreateUpdatesPage();
    QWidget* CreateAssociationsPage();
    QWidget* CreateCodeCompletionPage();
    void FillTypeMappings(const TDLTypeMappings& Mappings);
    void UpdateEnabled();
    // The dialog's controls into FData; false with a message when a type
    // mapping does not name a type.
    bool Collect();

    TOptionsData FData;
    QStackedWidget* FPages;
    int FOddColor, FEvenColor;
};

}  // namespace brindle
