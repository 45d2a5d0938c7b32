#include "CatalogueReport.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <QRegularExpression>

namespace brindle::test {

namespace {

// Each row of a pragma as "name=value" pairs joined by blanks.
void AddRows(TDLSQLiteDatabase& db, const QString& prefix, const QString& sql, QStringList& lines) {
    IRecordSetPtr rs = db.GetRecordSet(sql);
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        QStringList cells;
        for (int c = 0; c < rs->GetNames().size(); ++c)
            cells << rs->GetNames()[c] + u'=' + rs->GetValue(r, c);
        lines << prefix + cells.join(u' ');
    }
}

// The words of constraint clauses that no pragma shows, found in the text
// by patterns rather than by the parser under test: conflict words,
// collations, CHECK, AUTOINCREMENT and deferral, sorted.
QStringList ClauseWords(QString sql) {
    static const QRegularExpression noise(QStringLiteral("'(?:[^']|'')*'|--[^\n]*|/\\*.*?\\*/"),
                                          QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression words(
        QStringLiteral("\\b(ON\\s+CONFLICT\\s+\\w+|COLLATE\\s+\\w+|CHECK(?=\\s*\\()|AUTOINCREMENT|"
                       "(?:NOT\\s+)?DEFERRABLE(?:\\s+INITIALLY\\s+\\w+)?)"),
        QRegularExpression::CaseInsensitiveOption);
    sql.replace(noise, QStringLiteral(" "));
    QStringList found;
    for (auto it = words.globalMatch(sql); it.hasNext();) found << it.next().captured(1).simplified().toUpper();
    found.sort();
    return found;
}

// A trigger's head and body, read by patterns rather than by the parser
// under test: the head as its tokens behind the trigger's name, comments
// dropped, names unquoted and every word upper case (the engine compares
// names so); the body verbatim from its BEGIN.
QStringList TriggerHeadAndBody(const QString& sql) {
    static const QRegularExpression token(
        QStringLiteral(
            "'(?:[^']|'')*'|\"(?:[^\"]|\"\")*\"|`(?:[^`]|``)*`|\\[[^\\]]*\\]|--[^\n]*|/\\*.*?(?:\\*/|$)|"
            "[A-Za-z_\\x{80}-\\x{10FFFF}][A-Za-z0-9_$\\x{80}-\\x{10FFFF}]*|[0-9][0-9.]*|[<>=!|]+|\\S"),
        QRegularExpression::DotMatchesEverythingOption);
    struct TToken {
        QString Text;
        qsizetype Start;
    };
    std::vector<TToken> tokens;
    for (auto it = token.globalMatch(sql); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const QString t = m.captured(0);
        if (t.startsWith(QLatin1String("--")) || t.startsWith(QLatin1String("/*"))) continue;
        QString shown = t;
        if (t.startsWith(u'"') || t.startsWith(u'`'))
            shown = t.mid(1, t.size() - 2).replace(QString(2, t[0]), QString(t[0])).toUpper();
        else if (t.startsWith(u'['))
            shown = t.mid(1, t.size() - 2).toUpper();
        else if (!t.startsWith(u'\''))
            shown = t.toUpper();
        tokens.push_back({shown, m.capturedStart(0)});
    }
    // The body's BEGIN opens a statement; a column or table named begin
    // stands behind OF, a comma, ON or a dot.
    static const QStringList statements{QStringLiteral("SELECT"),  QStringLiteral("INSERT"),
                                        QStringLiteral("UPDATE"),  QStringLiteral("DELETE"),
                                        QStringLiteral("REPLACE"), QStringLiteral("WITH"),
                                        QStringLiteral("VALUES")};
    size_t begin = tokens.size();
    for (size_t i = 3; i + 1 < tokens.size() && begin == tokens.size(); ++i) {
        const QString& before = tokens[i - 1].Text;
        if (tokens[i].Text == u"BEGIN" && before != u"OF" && before != u"," && before != u"ON" &&
            before != u"." && statements.contains(tokens[i + 1].Text))
            begin = i;
    }
    QStringList head;
    for (size_t i = 3; i < begin; ++i) {  // behind CREATE TRIGGER name
        // The table of a trigger kept in a database is in that database:
        // naming it there says nothing more.
        if (i >= 4 && tokens[i - 1].Text == u"ON" && i + 1 < begin && tokens[i + 1].Text == u".") {
            ++i;
            continue;
        }
        head << tokens[i].Text;
    }
    return {QStringLiteral("head ") + head.join(u' '),
            QStringLiteral("body ") + (begin < tokens.size() ? sql.mid(tokens[begin].Start) : QString())};
}

}  // namespace

QStringList CatalogueReport(TDLSQLiteDatabase& db) {
    QStringList lines;
    IRecordSetPtr objects = db.GetRecordSet(QStringLiteral(
        "select type, name, tbl_name, coalesce(sql, '') from sqlite_master where name not like 'sqlite_stat%'"));
    for (int r = 0; r < objects->GetRecordCount(); ++r) {
        const QString type = objects->GetValue(r, 0), name = objects->GetValue(r, 1);
        const QString table = objects->GetValue(r, 2), sql = objects->GetValue(r, 3);
        const QString head = type + u' ' + name + u' ';
        if (type == u"trigger" || type == u"index") {
            // Automatic indexes are reported with their table.
            if (!name.startsWith(QLatin1String("sqlite_autoindex_"))) lines << head + QStringLiteral("on ") + table;
            if (type == u"trigger")
                for (const QString& part : TriggerHeadAndBody(sql)) lines << head + part;
            continue;
        }
        // Double quotes hold any name.
        const QString q = u'"' + QString(name).replace(u'"', QStringLiteral("\"\"")) + u'"';
        AddRows(db, head + QStringLiteral("column "), QStringLiteral("pragma table_xinfo(%1)").arg(q), lines);
        if (type != u"table") continue;
        AddRows(db, head + QStringLiteral("fk "), QStringLiteral("pragma foreign_key_list(%1)").arg(q), lines);
        IRecordSetPtr indexes = db.GetRecordSet(QStringLiteral("pragma index_list(%1)").arg(q));
        for (int i = 0; i < indexes->GetRecordCount(); ++i) {
            const QString index = indexes->GetValueByName(i, QStringLiteral("name"));
            const QString origin = indexes->GetValueByName(i, QStringLiteral("origin"));
            // The engine numbers its own indexes in the order of the
            // constraints in the text; they are named by what they are.
            QString shown = index;
            if (origin != u"c") {
                QStringList columns;
                db.GetValues(QStringLiteral("select name from pragma_index_info(%1)").arg(QuotedStr(index)), columns);
                shown = QStringLiteral("auto %1(%2)").arg(origin, columns.join(u','));
            }
            lines << head + QStringLiteral("index ") + shown + QStringLiteral(" unique=") +
                         indexes->GetValueByName(i, QStringLiteral("unique")) + QStringLiteral(" partial=") +
                         indexes->GetValueByName(i, QStringLiteral("partial"));
            AddRows(db, head + QStringLiteral("index ") + shown + QStringLiteral(" key "),
                    QStringLiteral("select seqno, cid, name, desc, coll from pragma_index_xinfo(%1) where key")
                        .arg(QuotedStr(index)),
                    lines);
        }
        // Conflict words, which no pragma shows.
        const TPrimaryKeyRec key = GetPrimaryKeyOptions(sql);
        if (!key.ConflictClause.isEmpty()) lines << head + QStringLiteral("key on conflict ") + key.ConflictClause;
        for (const TUniqueConstraintRec& u : GetUniqueConstraints(sql))
            if (!u.ConflictClause.isEmpty())
                lines << head + QStringLiteral("unique ") + u.Fields.join(u',') + QStringLiteral(" on conflict ") +
                             u.ConflictClause;
        QStringList columns;
        db.GetValues(QStringLiteral("select name from pragma_table_info(%1)").arg(QuotedStr(name)), columns);
        for (const QString& column : columns)
            if (const QString word = GetSQLFieldInfo(sql, column).NotNullConflictClause; !word.isEmpty())
                lines << head + QStringLiteral("not null ") + column + QStringLiteral(" on conflict ") + word;
        for (const TCheckConstraintRec& c : GetCheckConstraints(sql))
            lines << head + QStringLiteral("check ") + c.ConstraintName + QStringLiteral(": ") + c.Expression;
        for (const TForeignKeyRec& f : GetForeignKeys(sql))
            if (!f.Deferrable.isEmpty())
                lines << head + QStringLiteral("fk deferral ") + f.ChildKey.join(u',') + u' ' + f.Deferrable + u' ' +
                             f.Initially;
        if (IsWithoutRowid(sql)) lines << head + QStringLiteral("without rowid");
        // Column types are enforced or not: the catalogue's word on it.
        if (db.GetStringValue(QStringLiteral("select \"strict\" from pragma_table_list where schema = 'main' "
                                             "and name = %1")
                                  .arg(QuotedStr(name))) == u"1")
            lines << head + QStringLiteral("strict");
        lines << head + QStringLiteral("words ") + ClauseWords(sql).join(u',');
    }
    lines.sort();
    return lines;
}

QStringList ReportDifferences(const QStringList& A, const QStringList& B) {
    QStringList out;
    for (const QString& line : A)
        if (!B.contains(line)) out << QStringLiteral("- ") + line;
    for (const QString& line : B)
        if (!A.contains(line)) out << QStringLiteral("+ ") + line;
    return out;
}

}  // namespace brindle::test
