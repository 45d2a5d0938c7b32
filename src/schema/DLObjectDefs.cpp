#include "DLObjectDefs.h"

#include "engine/Assert.h"
#include "engine/DLQuoteTools.h"
#include "engine/SQLScanner.h"

namespace brindle {

namespace {

const QString kLineBreak = QStringLiteral("\r\n");
// What stands between two lines of a CREATE TABLE body.
const QString kNextLine = QStringLiteral(", \r\n  ");

// One string literal and nothing else: the quote that closes the first
// literal is the last character ("'a' || 'b'" begins and ends with a quote
// too).
bool IsStringLiteral(const QString& value) {
    if (value.size() < 2) return false;
    const QChar quote = value.front();
    if (quote != u'\'' && quote != u'"' && quote != u'`') return false;
    qsizetype i = 1;
    while (i < value.size()) {
        if (value[i] != quote) {
            ++i;
        } else if (i + 1 < value.size() && value[i + 1] == quote) {
            i += 2;  // a doubled quote stands for itself
        } else {
            return i == value.size() - 1;
        }
    }
    return false;
}

bool IsComplexExpression(const QString& value) {
    static const QString kOperators = QStringLiteral("\"$%&'()*+,-./:;<=>?@`|");
    for (const QChar c : value)
        if (kOperators.contains(c)) return true;
    return false;
}

// Quoted holds exactly Name between quotes the engine reads as a name's.
bool QuotesName(const QString& Quoted, const QString& Name) {
    if (Quoted.size() < 2) return false;
    const QChar open = Quoted.front(), close = Quoted.back();
    const QString inner = Quoted.mid(1, Quoted.size() - 2);
    if (open == u'[') return close == u']' && !inner.contains(u']') && inner == Name;
    if ((open != u'"' && open != u'`') || close != open) return false;
    return inner == QString(Name).replace(open, QString(2, open));
}

QString QuotedList(const QStringList& names) {
    QStringList quoted;
    for (const QString& n : names) quoted.append(QuoteName(n));
    return quoted.join(QStringLiteral(", "));
}

QString ConflictText(const QString& clause) {
    return clause.isEmpty() ? QString() : QStringLiteral(" ON CONFLICT ") + clause;
}

// An expression kept verbatim, in parentheses. A "--" comment at its end
// would swallow the closing one, which then goes on a line of its own.
QString Parenthesized(const QString& expression) {
    const bool endsInComment = EndStatement(expression) == expression + QStringLiteral("\r\n;");
    return u'(' + expression + (endsInComment ? kLineBreak : QString()) + u')';
}

// "CONSTRAINT [name] " when the trimmed name is not empty.
QString ConstraintPrefix(const QString& name) {
    return name.trimmed().isEmpty() ? QString() : QStringLiteral("CONSTRAINT %1 ").arg(QuoteName(name));
}

}  // namespace

QString DefaultToSQL(const QString& Value) {
    if (!IsStringLiteral(Value) && IsComplexExpression(Value)) return u'(' + Value + u')';
    return Value;
}

QString MakeColumnList(const QStringList& Fields) {
    return u'(' + QuotedList(Fields) + u')';
}

QString QuoteName(const QString& Name) {
    const QString quoted = QuoteIdentifier(Name);
    if (!IsQuotedIdentifier(Name) && QuotesName(quoted, Name)) return quoted;
    return QuoteSQLName(Name);
}

QString QuoteQualifiedName(const QString& QualifiedName) {
    QString databaseName, objectName;
    ParseObject(QualifiedName, databaseName, objectName);
    if (databaseName.isEmpty()) return QuoteName(objectName);
    return QuoteName(databaseName) + u'.' + QuoteName(objectName);
}

TDLFieldDef::TDLFieldDef(const QString& FieldName, const QString& DeclaredType, const QString& DefaultValue,
                         const QString& Collate, bool NotNull, const QString& NotNullConflictClause)
    : FFieldName(FieldName),
      FDeclaredType(DeclaredType),
      FDefaultValue(DefaultValue),
      FNotNull(NotNull),
      FCollate(Collate),
      FNotNullConflictClause(NotNullConflictClause) {}

TDLIndexFieldDef::TDLIndexFieldDef(const QString& FieldName, const QString& Collate, const QString& SortOrder,
                                   bool Autoincrement)
    : FFieldName(FieldName), FCollate(Collate), FAutoincrement(Autoincrement), FSortOrder(SortOrder) {}

TDLIndexFieldDef& TDLIndexFieldDefs::AddField(const QString& FieldName, const QString& Collate,
                                              const QString& SortOrder, bool Autoincrement) {
    return Add(std::make_unique<TDLIndexFieldDef>(FieldName, Collate, SortOrder, Autoincrement));
}

TDLIndexFieldDef& TDLIndexFieldDefs::Add(std::unique_ptr<TDLIndexFieldDef> Field) {
    FItems.push_back(std::move(Field));
    return *FItems.back();
}

TDLIndexDef::TDLIndexDef(const QString& IndexName, const QStringList& Fields, int Options,
                         const QString& ConflictClause, const QString& WhereClause)
    : FIndexName(IndexName),
      FOptions(Options),
      FFields(Fields),
      FConflictClause(ConflictClause),
      FWhereClause(WhereClause) {
    for (const QString& f : Fields) FIndexFields.AddField(f);
}

TDLIndexDef::TDLIndexDef(const QString& IndexName, TDLIndexFieldDefs Fields, int Options,
                         const QString& ConflictClause, const QString& WhereClause)
    : FIndexName(IndexName),
      FOptions(Options),
      FIndexFields(std::move(Fields)),
      FConflictClause(ConflictClause),
      FWhereClause(WhereClause) {
    for (int i = 0; i < FIndexFields.Count(); ++i) FFields.append(FIndexFields.Items(i).FFieldName);
}

TDLUniqueConstraintDef::TDLUniqueConstraintDef(const QString& ConstraintName, const QStringList& Fields,
                                               const QString& ConflictClause)
    : FConstraintName(ConstraintName), FFields(Fields), FConflictClause(ConflictClause) {}

TDLCheckConstraintDef::TDLCheckConstraintDef(const QString& ConstraintName, const QString& Expression)
    : FConstraintName(ConstraintName), FExpression(Expression) {}

QString TDLForeignKeyDef::GetClause() const {
    QString result;
    if (!FConstraintName.isEmpty()) result = QStringLiteral("CONSTRAINT ") + QuoteName(FConstraintName);
    if (!IsColumnConstraint()) result += QStringLiteral(" FOREIGN KEY(") + QuotedList(FChildKey) + u')';
    result += QStringLiteral(" REFERENCES ") + QuoteName(FParentTableName);
    if (!FParentKey.isEmpty()) result += u'(' + QuotedList(FParentKey) + u')';
    if (!FOnDeleteAction.isEmpty()) result += QStringLiteral(" ON DELETE ") + FOnDeleteAction;
    if (!FOnUpdateAction.isEmpty()) result += QStringLiteral(" ON UPDATE ") + FOnUpdateAction;
    if (!FMatchName.isEmpty()) result += QStringLiteral(" MATCH ") + FMatchName;
    if (!FDeferrable.isEmpty()) {
        result += u' ' + FDeferrable;
        if (!FInitially.isEmpty()) result += u' ' + FInitially;
    }
    // An unnamed table constraint starts with a blank.
    return result.trimmed();
}

TDLTriggerDef& TDLTriggerDefs::Add(std::unique_ptr<TDLTriggerDef> Trigger) {
    FItems.push_back(std::move(Trigger));
    return *FItems.back();
}

QString TDLTriggerDefs::GetSQL() const {
    // Each ended, so that the text runs as a script whatever follows.
    QString result;
    for (const auto& t : FItems) result += kLineBreak + EndStatement(t->FSQL);
    return result;
}

TDLTriggerDef& TDLViewDef::AddTrigger(const QString& TriggerName, const QString& SQL) {
    return AddTrigger(std::make_unique<TDLTriggerDef>(TriggerName, SQL));
}

void TDLViewDef::Clear() {
    FViewName.clear();
    FAsClause.clear();
    FColumnNames.clear();
    FTriggers.Clear();
    FIsTemporary = false;
    FUnsupportedClauses.clear();
}

QString TDLViewDef::GetCreateSQL(bool IncludeStructure, bool IncludeTriggers) const {
    QString result;
    if (IncludeStructure) {
        const QString head = FIsTemporary ? QStringLiteral("CREATE TEMPORARY VIEW %1 AS %2%3")
                                          : QStringLiteral("CREATE VIEW %1 AS %2%3");
        // The column list goes straight behind the name.
        const QString columns = FColumnNames.isEmpty() ? QString() : MakeColumnList(FColumnNames);
        result = head.arg(QuoteQualifiedName(FViewName) + columns, kLineBreak, FAsClause);
        // Alone the view's text has no ";"; triggers behind it need one.
        if (IncludeTriggers && FTriggers.Count() > 0) result = EndStatement(result);
    }
    if (IncludeTriggers) result += FTriggers.GetSQL();
    return result;
}

QString TDLVirtualTableDef::GetCreateSQL() const {
    QString result = QStringLiteral("CREATE VIRTUAL TABLE ") + QuoteQualifiedName(FTableName) +
                     QStringLiteral(" USING ") + FModuleName;
    if (!FModuleArguments.trimmed().isEmpty())
        result += QStringLiteral(" (") + kLineBreak + FModuleArguments + u')';
    return result + u';';
}

void TDLTableDef::Clear() {
    ClearFields();
    ClearIndexes();
    ClearTriggers();
    ClearConstraints();
}

void TDLTableDef::ClearConstraints() {
    FUniqueConstraints.clear();
    FCheckConstraints.clear();
    FForeignKeys.clear();
}

TDLFieldDef& TDLTableDef::AddField(std::unique_ptr<TDLFieldDef> Field) {
    FFields.push_back(std::move(Field));
    return *FFields.back();
}

TDLFieldDef& TDLTableDef::AddField(const QString& FieldName, const QString& DeclaredType,
                                   const QString& DefaultValue, const QString& Collate, bool NotNull,
                                   const QString& NotNullConflictClause) {
    return AddField(std::make_unique<TDLFieldDef>(FieldName, DeclaredType, DefaultValue, Collate, NotNull,
                                                  NotNullConflictClause));
}

TDLIndexDef& TDLTableDef::AddIndex(std::unique_ptr<TDLIndexDef> Index) {
    FIndexes.push_back(std::move(Index));
    return *FIndexes.back();
}

TDLIndexDef& TDLTableDef::AddIndex(const QString& IndexName, TDLIndexFieldDefs Fields, int Options,
                                   const QString& ConflictClause, const QString& WhereClause) {
    return AddIndex(
        std::make_unique<TDLIndexDef>(IndexName, std::move(Fields), Options, ConflictClause, WhereClause));
}

TDLTriggerDef& TDLTableDef::AddTrigger(const QString& TriggerName, const QString& SQL) {
    return AddTrigger(std::make_unique<TDLTriggerDef>(TriggerName, SQL));
}

TDLUniqueConstraintDef& TDLTableDef::AddUniqueConstraint(std::unique_ptr<TDLUniqueConstraintDef> Constraint) {
    FUniqueConstraints.push_back(std::move(Constraint));
    return *FUniqueConstraints.back();
}

TDLCheckConstraintDef& TDLTableDef::AddCheckConstraint(std::unique_ptr<TDLCheckConstraintDef> Constraint) {
    FCheckConstraints.push_back(std::move(Constraint));
    return *FCheckConstraints.back();
}

TDLForeignKeyDef& TDLTableDef::AddForeignKey(std::unique_ptr<TDLForeignKeyDef> ForeignKey) {
    FForeignKeys.push_back(std::move(ForeignKey));
    return *FForeignKeys.back();
}

TDLIndexDef* TDLTableDef::FindIndex(const QString& IndexName) const {
    for (const auto& ix : FIndexes)
        if (ix->FIndexName == IndexName) return ix.get();
    return nullptr;
}

bool TDLTableDef::HasUnsupportedClauses() const {
    if (!FUnsupportedClauses.isEmpty()) return true;
    for (const auto& f : FFields)
        if (!f->FUnsupportedClauses.isEmpty()) return true;
    for (const auto& i : FIndexes)
        if (!i->FUnsupportedClauses.isEmpty()) return true;
    return false;
}

std::unique_ptr<TDLIndexDef> TDLTableDef::TakeIndex(int i) {
    auto it = FIndexes.begin() + i;
    std::unique_ptr<TDLIndexDef> index = std::move(*it);
    FIndexes.erase(it);
    return index;
}

QString TDLTableDef::GetSQLFieldNames(const TDLIndexDef& DLIndexDef) {
    QStringList columns;
    for (int i = 0; i < DLIndexDef.FIndexFields.Count(); ++i) {
        const TDLIndexFieldDef& f = DLIndexDef.FIndexFields.Items(i);
        QString column = QuoteName(f.FFieldName);
        if (!f.FCollate.isEmpty()) column += QStringLiteral(" COLLATE ") + f.FCollate;
        if (!f.FSortOrder.isEmpty()) column += u' ' + f.FSortOrder;
        columns.append(column);
    }
    return columns.join(QStringLiteral(", "));
}

QString TDLTableDef::GetIndexSQL(const TDLIndexDef& DLIndexDef) const {
    BRINDLE_ASSERT(!(DLIndexDef.FOptions & ixPrimary), "GetIndexSQL called for a primary key");
    QString databaseName, tableName;
    ParseObject(FTableName, databaseName, tableName);
    const QString where = DLIndexDef.FWhereClause.trimmed();
    const bool unique = DLIndexDef.FOptions & ixUnique;
    const bool descending = DLIndexDef.FOptions & ixDescending;
    // The engine refuses DESCENDING; no caller sets it, and column sort
    // orders carry descending indexes instead.
    QString sql;
    if (unique && descending)
        sql = QStringLiteral("CREATE UNIQUE DESCENDING INDEX %1 ON %2 (%3)%4;");
    else if (unique)
        sql = QStringLiteral("CREATE UNIQUE INDEX %1 ON %2 (%3)%4;");
    else if (descending)
        sql = QStringLiteral("CREATE DESCENDING INDEX %1 ON %2 (%3)%4;");
    else
        sql = QStringLiteral("CREATE INDEX %1 ON %2 (%3)%4;");
    // The index name carries the database; the engine wants the table bare.
    return sql.arg(databaseName.isEmpty() ? QuoteName(DLIndexDef.FIndexName)
                                          : QuoteName(databaseName) + u'.' + QuoteName(DLIndexDef.FIndexName),
                   QuoteName(tableName), GetSQLFieldNames(DLIndexDef),
                   where.isEmpty() ? QString() : QStringLiteral(" WHERE ") + where);
}

QString TDLTableDef::GetCreateSQL(bool IncludeStructure, bool IncludeIndexes, bool IncludeTriggers) const {
    // The primary key: on its column's line for a lone INTEGER column that
    // is autoincrement or has no collation anywhere, a named table
    // constraint otherwise. The inline form drops the key column's
    // collation on purpose, and its sort order but DESC: the engine makes
    // such a column the rowid in every form but "PRIMARY KEY DESC" on its
    // line, so a descending one is written there whatever else it has.
    const TDLFieldDef* keyField = nullptr;
    bool keyAutoincrement = false;
    bool keyDescending = false;
    QString keyConflictClause;
    if (IncludeIndexes) {
        for (const auto& ix : FIndexes) {
            if (!(ix->FOptions & ixPrimary)) continue;
            if (ix->FIndexFields.Count() == 1) {
                const TDLIndexFieldDef& column = ix->FIndexFields.Items(0);
                for (const auto& f : FFields) {
                    if (f->FFieldName != column.FFieldName) continue;
                    const bool isInteger =
                        f->FDeclaredType.compare(QLatin1String("INTEGER"), Qt::CaseInsensitive) == 0;
                    // AUTOINCREMENT is the rowid's alone.
                    const bool descending =
                        !column.FAutoincrement &&
                        column.FSortOrder.trimmed().compare(QLatin1String("DESC"), Qt::CaseInsensitive) == 0;
                    if (isInteger && (descending || column.FAutoincrement ||
                                      (f->FCollate.isEmpty() && column.FCollate.isEmpty()))) {
                        keyField = f.get();
                        keyAutoincrement = column.FAutoincrement;
                        keyDescending = descending;
                    }
                    break;
                }
            }
            keyConflictClause = ix->FConflictClause;
            break;
        }
    }

    QString result;
    if (IncludeStructure) {
        QString body;
        for (size_t i = 0; i < FFields.size(); ++i) {
            const TDLFieldDef& f = *FFields[i];
            body += (i > 0 ? kNextLine : QStringLiteral("\r\n  ")) + QuoteName(f.FFieldName) + u' ' +
                    QuoteDeclaredTypeIfNeeded(f.FDeclaredType);
            if (f.FNotNull) body += QStringLiteral(" NOT NULL") + ConflictText(f.FNotNullConflictClause);
            if (keyField && SameObject(f.FFieldName, keyField->FFieldName)) {
                body += QStringLiteral(" PRIMARY KEY") +
                        (keyDescending ? QStringLiteral(" DESC") : QString()) +
                        ConflictText(keyConflictClause);
                if (keyAutoincrement) body += QStringLiteral(" AUTOINCREMENT");
            }
            for (const auto& u : FUniqueConstraints) {
                if (u->FFields.size() != 1 || !SameObject(u->FFields.front(), f.FFieldName)) continue;
                if (!u->FConstraintName.isEmpty())
                    body += QStringLiteral(" CONSTRAINT ") + QuoteName(u->FConstraintName);
                body += QStringLiteral(" UNIQUE") + ConflictText(u->FConflictClause);
            }
            for (const auto& fk : FForeignKeys)
                if (fk->IsColumnConstraint() && SameObject(fk->FChildKey.front(), f.FFieldName))
                    body += u' ' + fk->GetClause();
            if (!f.FCollate.isEmpty()) body += QStringLiteral(" COLLATE ") + f.FCollate;
            if (!f.FDefaultValue.isEmpty())
                body += QStringLiteral(" DEFAULT ") + DefaultToSQL(f.FDefaultValue);
            if (!f.FGeneratedExpression.isEmpty())
                body += QStringLiteral(" GENERATED ALWAYS AS ") + Parenthesized(f.FGeneratedExpression) +
                        (f.FGeneratedStored ? QStringLiteral(" STORED") : QStringLiteral(" VIRTUAL"));
        }
        for (const auto& u : FUniqueConstraints) {
            if (u->FFields.size() < 2) continue;
            body += kNextLine + ConstraintPrefix(u->FConstraintName) + QStringLiteral("UNIQUE") +
                    MakeColumnList(u->FFields) + ConflictText(u->FConflictClause);
        }
        for (const auto& c : FCheckConstraints)
            body += kNextLine + ConstraintPrefix(c->FConstraintName) + QStringLiteral("CHECK") +
                    Parenthesized(c->FExpression);
        for (const auto& fk : FForeignKeys)
            if (!fk->IsColumnConstraint()) body += kNextLine + fk->GetClause();

        result =
            (FIsTemporary ? QStringLiteral("CREATE TEMPORARY TABLE ") : QStringLiteral("CREATE TABLE ")) +
            QuoteQualifiedName(FTableName) + QStringLiteral(" (") + body;
        if (IncludeIndexes && !keyField) {
            // Always named, and last, behind the foreign keys.
            for (const auto& ix : FIndexes) {
                if (!(ix->FOptions & ixPrimary)) continue;
                result += kNextLine + QStringLiteral("CONSTRAINT ") + QuoteName(ix->FIndexName) +
                          QStringLiteral(" PRIMARY KEY (") + GetSQLFieldNames(*ix) + u')' +
                          ConflictText(keyConflictClause);
            }
        }
        result += u')';
        QStringList options;
        if (FIsWithoutRowID) options.append(QStringLiteral("WITHOUT ROWID"));
        if (FIsStrict) options.append(QStringLiteral("STRICT"));
        if (!options.isEmpty()) result += u' ' + options.join(QStringLiteral(", "));
        result += u';';
    }
    if (IncludeIndexes) {
        for (const auto& ix : FIndexes)
            if (!(ix->FOptions & ixPrimary)) result += kLineBreak + GetIndexSQL(*ix);
    }
    if (IncludeTriggers) result += FTriggers.GetSQL();
    return result;
}

}  // namespace brindle
