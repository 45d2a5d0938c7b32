// A SQL dataset with its text as lines and its parameters, which may take
// their values from a master dataset's current row.
#pragma once

#include "DLSQLDataSet.h"
#include "engine/DLParams.h"

namespace brindle {

// A SQL dataset with its text as lines and its parameters.
class TDLQuery : public TDLSQLDataSet {
public:
    void SetActive(bool Value) override;
    // A filter moves into the statement as a WHERE clause when the text is
    // one statement that takes one.
    bool CanServerFilter() override;
    // Parameters not set take the master's field of the same name, read
    // each time the master moves; null for none. "Circular reference" when
    // the link would come back here.
    void SetDataSource(TDataSet* Master);
    TDataSet* DataSource() const;

    const QStringList& SQL() const { return FSQL; }
    void SetSQL(const QStringList& Value);
    void SetSQL(const QString& Text) { SetSQL(QStringList{Text}); }
    // Made from the text when first asked for.
    TParams& Params();
    // Raises "Parameter '%s' not found" when the text has no such name.
    TParam& ParamByName(const QString& Name);

protected:
    void InternalSetParams(TSQLiteSQLHandle& SQLHandle) override;

private:
    void CreateParams();
    void SetParamsFromCursor();
    QString SQLText() const;
    // The text's one statement, without its semicolon; empty when it holds
    // none or several, or one a WHERE cannot follow.
    QString ServerFilterStatement() const;
    static QString WithCondition(const QString& Statement, const QString& Condition);
    QStringList FSQL;
    TParams FParams;
    bool FParamsMade = false;
    std::unique_ptr<TDLDataLink> FDataLink;
};

}  // namespace brindle
