// The query: its text as lines, parameters made from the text and bound by
// name or from a master's row, and a filter that moves into the statement
// when the text is one SELECT that takes a WHERE.
#include "DLQuery.h"

#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "engine/SQLText.h"

namespace brindle {

// ---------------------------------------------------------------------------
// TDLQuery

void TDLQuery::SetSQL(const QStringList& Value) {
    Close();
    FSQL = Value;
    FParams.Clear();
    FParamsMade = false;
    SetSQLStr(SQLText());
}

void TDLQuery::CreateParams() {
    if (FParamsMade || !Database()) return;
    Database()->SetConnected(true);
    Database()->CreateParams(SQLStr(), FParams);
    FParamsMade = true;
}

TParams& TDLQuery::Params() {
    CreateParams();
    return FParams;
}

TParam& TDLQuery::ParamByName(const QString& Name) {
    TParam* p = Params().FindParam(Name);
    if (!p) {
        // Names are asked for without their leading mark.
        for (const QChar mark : {u':', u'@', u'$', u'?'})
            if (!p) p = FParams.FindParam(mark + Name);
    }
    if (!p) throw ECustomException(QStringLiteral("Parameter '%1' not found").arg(Name));
    return *p;
}

void TDLQuery::InternalSetParams(TSQLiteSQLHandle& SQLHandle) {
    CreateParams();
    if (FParams.Count() == 0) return;
    SetParamsFromCursor();
    Database()->BindParams(SQLHandle, &FParams);
}

void TDLQuery::SetParamsFromCursor() {
    TDataSet* master = FDataLink ? FDataLink->Master() : nullptr;
    for (int i = 0; i < FParams.Count(); ++i) {
        TParam& p = FParams[i];
        if (p.Bound) continue;
        if (!master) throw ECustomException(QStringLiteral("Required param not set: ") + p.Name);
        // Taken afresh from the master's row each time: it stays unbound.
        QString name = p.Name;
        if (name.startsWith(u':')) name.remove(0, 1);
        const TField* field = master->FindField(name);
        p.Value = field ? master->GetFieldValue(*field) : QVariant();
        if (p.DataType == ftUnknown) p.DataType = field ? field->DataType() : ftWideString;
    }
}

void TDLQuery::SetDataSource(TDataSet* Master) {
    if (Master == this) throw ECustomException(QStringLiteral("Circular reference"));
    for (auto* q = dynamic_cast<TDLQuery*>(Master); q; q = q->FDataLink ? dynamic_cast<TDLQuery*>(q->FDataLink->Master()) : nullptr)
        if (q->FDataLink && q->FDataLink->Master() == this) throw ECustomException(QStringLiteral("Circular reference"));
    FDataLink.reset();
    if (Master) FDataLink = std::make_unique<TDLDataLink>(*Master, *this);
}

TDataSet* TDLQuery::DataSource() const {
    return FDataLink ? FDataLink->Master() : nullptr;
}

QString TDLQuery::WithCondition(const QString& Statement, const QString& Condition) {
    // On a line of its own: a comment at the statement's end ends there.
    return Statement + QStringLiteral("\nWHERE ") + Condition;
}

QString TDLQuery::ServerFilterStatement() const {
    if (!Database()) return QString();
    QStringList pieces;
    ParseSQL(SQLText(), pieces, true);
    QString statement;
    for (const QString& piece : pieces) {
        if (GetSQLCommand(piece) == stUnknown) continue;  // comments and blanks
        if (!statement.isEmpty()) return QString();
        statement = piece;
    }
    // A WHERE behind a compound SELECT would filter its last part only.
    if (statement.isEmpty() || HasSetOperationOrGrouping(statement)) return QString();
    return Database()->IsValidSQL(WithCondition(statement, QStringLiteral("1=1"))) ? statement : QString();
}

bool TDLQuery::CanServerFilter() {
    return !ServerFilterStatement().isEmpty();
}

QString TDLQuery::SQLText() const {
    return FSQL.join(u'\n');
}

void TDLQuery::SetActive(bool Value) {
    if (Value && !Active()) {
        FServerFiltered = false;
        QString text = SQLText();
        const QString statement = FFiltered && !FFilterText.isEmpty() ? ServerFilterStatement() : QString();
        if (!statement.isEmpty()) {
            // The columns the condition may name, as this statement has them.
            DescribeColumns(statement);
            const QString where = ServerFilterCondition();
            if (!where.isEmpty()) {
                text = WithCondition(statement, where);
                FServerFiltered = true;
            }
        }
        SetSQLStr(text);
    }
    TDLSQLDataSet::SetActive(Value);
}

}  // namespace brindle
