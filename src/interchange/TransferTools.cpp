#include "TransferTools.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLObjectDefs.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"

namespace brindle {

// ---------------------------------------------------------------------------
// Columns

namespace {

bool IsComputed(const TBaseFieldInfo& Field) {
    const auto* f = dynamic_cast<const TSQLiteFieldInfo*>(&Field);
    return f && f->FGenerated;
}

// The token of the first Role in SQL replaced by Value, the rest verbatim.
QString ReplaceFirst(const QString& SQL, TSQLTokenType Role, const QString& Value) {
    TSQLParser& parser = GetParser(SQL);
    const int i = parser.IndexOf(Role);
    if (i < 0) return SQL;
    return parser.TextBefore(i) + Value + parser.TextBehind(i);
}

}  // namespace

QString BareObjectName(const QString& QualifiedName) {
    QString db, name;
    SplitObjectName(QualifiedName, db, name);
    return name;
}

bool IsShadowTable(const TBaseTableInfo& Table) {
    const auto* s = dynamic_cast<const TSQLiteTableInfo*>(&Table);
    return s && s->FIsShadow;
}

bool IsVirtualTable(const TBaseTableInfo& Table) {
    const auto* s = dynamic_cast<const TSQLiteTableInfo*>(&Table);
    return s && s->FIsVirtual;
}

QStringList InsertableColumns(const TBaseTableInfo& Table) {
    QStringList columns;
    for (int i = 0; i < Table.FieldCount(); ++i)
        if (!IsComputed(Table.Fields(i))) columns << Table.Fields(i).FFieldName;
    return columns;
}

bool HasComputedColumns(const TBaseTableInfo& Table) {
    for (int i = 0; i < Table.FieldCount(); ++i)
        if (IsComputed(Table.Fields(i))) return true;
    return false;
}

bool KeepsRowID(const TBaseTableInfo& Table) {
    const auto* t = dynamic_cast<const TSQLiteTableInfo*>(&Table);
    if (!t || t->FIsWithoutRowID || t->FIsShadow) return false;
    if (t->FIsVirtual)
        return t->FModuleName.compare(QLatin1String("fts3"), Qt::CaseInsensitive) == 0 ||
               t->FModuleName.compare(QLatin1String("fts4"), Qt::CaseInsensitive) == 0 ||
               t->FModuleName.compare(QLatin1String("fts5"), Qt::CaseInsensitive) == 0;
    // A key that is the rowid has no index of its own, and so no name.
    const TBaseIndexInfo* key = Table.PrimaryKey();
    if (key && key->FIndexName.isEmpty()) return false;
    for (int i = 0; i < Table.FieldCount(); ++i)
        if (Table.Fields(i).FFieldName.compare(QLatin1String("rowid"), Qt::CaseInsensitive) == 0)
            return false;
    return true;
}

QString QuotedColumnList(const QStringList& Columns) {
    QStringList quoted;
    quoted.reserve(Columns.size());
    for (const QString& c : Columns) quoted << QuoteName(c);
    return quoted.join(QStringLiteral(", "));
}

// ---------------------------------------------------------------------------
// Texts the definitions cannot carry

QString StoredTableText(const TSQLiteTableInfo& Table, const QString& DestName) {
    if (Table.FSQL.isEmpty() || GetUnsupportedClauses(Table.FSQL).empty()) return QString();
    // The name of the table is given unqualified: it lands in the
    // destination's main database.
    TSQLParser& parser = GetParser(Table.FSQL);
    const int name = parser.IndexOf(stTableName);
    if (name < 0) return Table.FSQL;
    int from = name;
    if (from >= 2 && parser.SQLTokens(from - 1)->FTokenType == ttDot) from -= 2;
    return parser.TextBefore(from) + DestName + parser.TextBehind(name);
}

bool HasExpressionColumns(const TBaseIndexInfo& Index) {
    for (int i = 0; i < Index.IndexFieldCount(); ++i)
        if (Index.IndexFields(i).FFieldName.isEmpty()) return true;
    return false;
}

QString StoredIndexText(const TBaseIndexInfo& Index, const QString& IndexName, const QString& TableName) {
    QString sql = ReplaceFirst(Index.FSQL, stIndexName, QuoteName(IndexName));
    return ReplaceFirst(sql, stTableName, TableName);
}

// ---------------------------------------------------------------------------
// Definitions

void AddFieldDefs(const TBaseTableInfo& Table, TDLTableDef& TableDef, bool NotNull) {
    for (int i = 0; i < Table.FieldCount(); ++i) {
        const TBaseFieldInfo& f = Table.Fields(i);
        const auto* s = dynamic_cast<const TSQLiteFieldInfo*>(&f);
        TDLFieldDef& def =
            TableDef.AddField(f.FFieldName, f.FFullSQLType, f.FDefaultValue, s ? s->FCollate : QString(),
                              NotNull && f.FNotNull, s && NotNull ? s->FNotNullConflictClause : QString());
        if (s && s->FGenerated) {
            // The expression stands only in the stored text.
            const TSQLFieldRec rec = GetSQLFieldInfo(Table.FSQL, f.FFieldName);
            def.FGeneratedExpression = rec.GeneratedExpression;
            def.FGeneratedStored = rec.GeneratedStored;
            def.FDefaultValue.clear();
        }
    }
}

std::unique_ptr<TDLIndexDef> IndexDefOf(const TBaseIndexInfo& Index, const QString& IndexName,
                                        bool IsPrimary) {
    const auto* s = dynamic_cast<const TSQLiteIndexInfo*>(&Index);
    TDLIndexFieldDefs fields;
    for (int i = 0; i < Index.IndexFieldCount(); ++i) {
        if (s) {
            const TSQLiteIndexFieldInfo& f = s->Field(i);
            fields.AddField(f.FFieldName, f.FCollate, f.FSortOrder, IsPrimary && f.FAutoincrement);
        } else {
            fields.AddField(Index.IndexFields(i).FFieldName);
        }
    }
    int options = Index.FOptions;
    if (!IsPrimary) options &= ~ixPrimary;
    return std::make_unique<TDLIndexDef>(IndexName, std::move(fields), options,
                                         s ? s->FConflictClause : QString(), s ? s->FWhereClause : QString());
}

void AddConstraintDefs(const TBaseTableInfo& Table, TDLTableDef& TableDef) {
    for (int i = 0; i < Table.UniqueConstraintCount(); ++i) {
        const TBaseUniqueConstraintInfo& u = Table.UniqueConstraints(i);
        TableDef.AddUniqueConstraint(
            std::make_unique<TDLUniqueConstraintDef>(u.FConstraintName, u.FFields, u.FConflictClause));
    }
    for (int i = 0; i < Table.CheckConstraintCount(); ++i) {
        const TBaseCheckConstraintInfo& c = Table.CheckConstraints(i);
        TableDef.AddCheckConstraint(
            std::make_unique<TDLCheckConstraintDef>(c.FConstraintName, c.FExpression));
    }
    for (int i = 0; i < Table.ForeignKeyCount(); ++i) {
        const TBaseForeignKeyInfo& f = Table.ForeignKeys(i);
        auto key = std::make_unique<TDLForeignKeyDef>();
        key->FConstraintName = f.FConstraintName;
        key->FChildKey = f.FChildKey;
        key->FParentKey = f.FParentKey;
        key->FParentTableName = f.FParentTableName;
        key->FOnDeleteAction = f.FOnDeleteAction;
        key->FOnUpdateAction = f.FOnUpdateAction;
        key->FMatchName = f.FMatchName;
        key->FDeferrable = f.FDeferrable;
        key->FInitially = f.FInitially;
        TableDef.AddForeignKey(std::move(key));
    }
}

void SetTableOptions(const TBaseTableInfo& Table, TDLTableDef& TableDef) {
    const auto* s = dynamic_cast<const TSQLiteTableInfo*>(&Table);
    TableDef.FIsWithoutRowID = s && s->FIsWithoutRowID;
    TableDef.FIsStrict = s && !Table.FSQL.isEmpty() && IsStrictTable(Table.FSQL);
}

// ---------------------------------------------------------------------------
// AUTOINCREMENT

bool HasSequenceTable(TDLSQLiteDatabase& Database) {
    return Database.GetStringValue(
               QStringLiteral("select count(*) from sqlite_master where type = 'table' and "
                              "name = 'sqlite_sequence'")) == u"1";
}

std::optional<qint64> ReadSequence(TDLSQLiteDatabase& Database, const QString& TableName) {
    if (!HasSequenceTable(Database)) return std::nullopt;
    const QString value = Database.GetStringValue(
        QStringLiteral("select seq from sqlite_sequence where name = %1").arg(QuotedStr(TableName)));
    bool ok = false;
    const qint64 seq = value.toLongLong(&ok);
    return ok ? std::optional<qint64>(seq) : std::nullopt;
}

QStringList SequenceStatements(const QString& QuotedTableName, qint64 Value, const QString& Schema) {
    const QString name = QuotedStr(BareObjectName(QuotedTableName));
    const QString table = Schema + QStringLiteral("sqlite_sequence");
    return {QStringLiteral("update %3 set seq = max(seq, %1) where name = %2;").arg(Value).arg(name, table),
            QStringLiteral("insert into %3(name, seq) select %2, %1 where not exists "
                           "(select 1 from %3 where name = %2);")
                .arg(Value)
                .arg(name, table)};
}

QString CommentSafe(const QString& Text) {
    QString s = Text;
    return s.replace(QLatin1String("*/"), QLatin1String("* /"));
}

}  // namespace brindle
