#include "SQLText.h"

#include "DLQueryInfo.h"
#include "DLQuoteTools.h"

#include <QRegularExpression>

#include <vector>

namespace brindle {

namespace {

TSQLTextServices& services() {
    static TSQLTextServices s;
    return s;
}

// ---------------------------------------------------------------------------
// A small lexer: enough to find statement ends and the leading keywords.

enum class Tok { Word, Ident, String, Number, Punct, End };

struct Token {
    Tok kind;
    int pos;
    int len;
    QString text(const QString& src) const { return src.mid(pos, len); }
};

bool isSpace(QChar c) { return c.isSpace() || c == QChar(0); }
bool isWordChar(QChar c) { return c.isLetterOrNumber() || c == u'_' || c == u'$' || c.unicode() >= 128; }

// Skips blanks and comments from i; returns the new position.
int skipTrivia(const QString& s, int i) {
    const int n = s.size();
    while (i < n) {
        const QChar c = s[i];
        if (isSpace(c)) {
            ++i;
        } else if (c == u'-' && i + 1 < n && s[i + 1] == u'-') {
            while (i < n && s[i] != u'\n' && s[i] != u'\r') ++i;
        } else if (c == u'/' && i + 1 < n && s[i + 1] == u'*') {
            const int e = s.indexOf(QLatin1String("*/"), i + 2);
            i = e < 0 ? n : e + 2;
        } else {
            break;
        }
    }
    return i;
}

// Reads the token at i (trivia already skipped).
Token readToken(const QString& s, int i) {
    const int n = s.size();
    if (i >= n) return {Tok::End, n, 0};
    const QChar c = s[i];
    QChar close;
    Tok kind = Tok::Ident;
    if (c == u'\'') {
        close = u'\'';
        kind = Tok::String;
    } else if (c == u'"' || c == u'`') {
        close = c;
    } else if (c == u'[') {
        close = u']';
    }
    if (!close.isNull()) {
        int j = i + 1;
        while (j < n) {
            if (s[j] == close) {
                // A doubled quote stands for itself, except inside brackets.
                if (close != u']' && j + 1 < n && s[j + 1] == close) {
                    j += 2;
                    continue;
                }
                ++j;
                break;
            }
            ++j;
        }
        return {kind, i, j - i};
    }
    if (c.isDigit()) {
        int j = i + 1;
        while (j < n && (s[j].isLetterOrNumber() || s[j] == u'.')) ++j;
        return {Tok::Number, i, j - i};
    }
    if (isWordChar(c)) {
        int j = i + 1;
        while (j < n && isWordChar(s[j])) ++j;
        return {Tok::Word, i, j - i};
    }
    return {Tok::Punct, i, 1};
}

std::vector<Token> tokenize(const QString& s, int maxTokens = -1) {
    std::vector<Token> out;
    int i = skipTrivia(s, 0);
    while (i < s.size()) {
        if (maxTokens >= 0 && static_cast<int>(out.size()) >= maxTokens) break;
        Token t = readToken(s, i);
        out.push_back(t);
        i = skipTrivia(s, t.pos + t.len);
    }
    return out;
}

bool isWord(const QString& src, const Token& t, const char* word) {
    return t.kind == Tok::Word && t.text(src).compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
}

QString nameOf(const QString& src, const Token& t) {
    return t.kind == Tok::String ? UnQuoteIdentifier(t.text(src)) : t.text(src);
}

// Splits at top-level semicolons; inside CREATE TRIGGER ... BEGIN, only the
// ";" behind an END that closes no CASE ends the statement.
void fallbackParseSQL(const QString& s, QStringList& list, bool stripSemicolon) {
    const int n = s.size();
    int start = 0;
    int i = 0;
    int stmtToken = 0;  // tokens seen in the current statement
    bool sawCreate = false, inTrigger = false, inBody = false, afterEnd = false;
    int caseDepth = 0;
    auto emitPiece = [&](int endExclusive, bool hasSemicolon) {
        QString piece = s.mid(start, endExclusive - start);
        if (stripSemicolon && hasSemicolon) piece.chop(1);
        if (!piece.isEmpty()) list.append(piece);
        start = endExclusive;
        stmtToken = 0;
        sawCreate = inTrigger = inBody = afterEnd = false;
        caseDepth = 0;
    };
    while (true) {
        i = skipTrivia(s, i);
        if (i >= n) break;
        const Token t = readToken(s, i);
        i = t.pos + t.len;
        if (t.kind == Tok::Punct && s[t.pos] == u';') {
            if (!inBody || (afterEnd && caseDepth == 0)) {
                emitPiece(i, true);
                continue;
            }
            afterEnd = false;
            continue;
        }
        if (stmtToken == 0 && isWord(s, t, "create")) sawCreate = true;
        if (sawCreate && stmtToken <= 3 && isWord(s, t, "trigger")) inTrigger = true;
        if (inTrigger && !inBody && isWord(s, t, "begin")) inBody = true;
        if (inBody) {
            if (afterEnd) {
                afterEnd = false;
                if (caseDepth > 0) --caseDepth;
            }
            if (isWord(s, t, "case")) ++caseDepth;
            if (isWord(s, t, "end")) afterEnd = true;
        }
        ++stmtToken;
    }
    if (start < n) emitPiece(n, false);
}

TSQLTokenType fallbackCommand(const QString& sql) {
    const std::vector<Token> t = tokenize(sql, 6);
    if (t.empty() || t[0].kind != Tok::Word) return stUnknown;
    const QString w = t[0].text(sql).toLower();
    auto at = [&](size_t k, const char* word) { return k < t.size() && isWord(sql, t[k], word); };
    if (w == u"select" || w == u"with" || w == u"values") return stSelect;
    if (w == u"insert") return stInsert;
    if (w == u"replace") return stReplace;
    if (w == u"update") return stUpdate;
    if (w == u"delete") return stDelete;
    if (w == u"pragma") return stPragma;
    if (w == u"explain") return stExplain;
    if (w == u"attach") return stAttach;
    if (w == u"detach") return stDetach;
    if (w == u"begin") return stBegin;
    if (w == u"commit") return stCommit;
    if (w == u"end") return stEnd;
    if (w == u"rollback") return stRollback;
    if (w == u"savepoint") return stSavepoint;
    if (w == u"release") return stRelease;
    if (w == u"vacuum") return stVacuum;
    if (w == u"analyze") return stAnalyze;
    if (w == u"reindex") return stReindex;
    if (w == u"alter") return stAlterTable;
    if (w == u"drop") {
        if (at(1, "table")) return stDropTable;
        if (at(1, "view")) return stDropView;
        if (at(1, "index")) return stDropIndex;
        if (at(1, "trigger")) return stDropTrigger;
        return stUnknown;
    }
    if (w == u"create") {
        size_t k = 1;
        if (at(k, "temp") || at(k, "temporary")) ++k;
        if (at(k, "unique")) ++k;
        if (at(k, "table")) return stCreateTable;
        if (at(k, "view")) return stCreateView;
        if (at(k, "index")) return stCreateIndex;
        if (at(k, "trigger")) return stCreateTrigger;
        if (at(k, "virtual")) return stCreateVirtualTable;
    }
    return stUnknown;
}

// The name behind the leading keywords of SAVEPOINT, RELEASE [SAVEPOINT],
// ROLLBACK [TRANSACTION] TO [SAVEPOINT].
QString fallbackSavepointName(const QString& sql) {
    const std::vector<Token> t = tokenize(sql, 8);
    size_t k = 0;
    while (k < t.size() && t[k].kind == Tok::Word) {
        if (isWord(sql, t[k], "savepoint") || isWord(sql, t[k], "release") || isWord(sql, t[k], "rollback") ||
            isWord(sql, t[k], "transaction") || isWord(sql, t[k], "to")) {
            ++k;
            continue;
        }
        break;
    }
    if (k >= t.size() || k == 0) return {};
    // A plain ROLLBACK names nothing.
    if (isWord(sql, t[0], "rollback")) {
        bool sawTo = false;
        for (size_t j = 0; j < k; ++j) sawTo = sawTo || isWord(sql, t[j], "to");
        if (!sawTo) return {};
    }
    if (t[k].kind != Tok::Word && t[k].kind != Tok::Ident && t[k].kind != Tok::String) return {};
    return QuoteObjectIfNeeded(nameOf(sql, t[k]));
}

QString fallbackDatabaseName(const QString& sql) {
    const std::vector<Token> t = tokenize(sql);
    if (t.empty()) return {};
    if (isWord(sql, t[0], "detach")) {
        size_t k = 1;
        if (k < t.size() && isWord(sql, t[k], "database")) ++k;
        return k < t.size() ? t[k].text(sql) : QString();
    }
    // ATTACH [DATABASE] expr AS name: the name follows the last AS.
    for (size_t k = t.size(); k-- > 1;) {
        if (isWord(sql, t[k - 1], "as")) return t[k].text(sql);
    }
    return {};
}

QString fallbackFileName(const QString& sql) {
    const std::vector<Token> t = tokenize(sql, 4);
    size_t k = 1;
    if (k < t.size() && isWord(sql, t[k], "database")) ++k;
    if (k < t.size() && t[k].kind == Tok::String) {
        QString f = t[k].text(sql);
        return f.mid(1, f.size() - 2).replace(QLatin1String("''"), QLatin1String("'"));
    }
    return {};
}

bool fallbackLoadExtension(const QString& sql, QString& fileName, QString& entryPoint) {
    fileName.clear();
    entryPoint.clear();
    const std::vector<Token> t = tokenize(sql);
    for (size_t k = 0; k + 2 < t.size(); ++k) {
        if (!isWord(sql, t[k], "load_extension") || sql[t[k + 1].pos] != u'(') continue;
        if (t[k + 2].kind != Tok::String) return false;
        fileName = UnQuoteIdentifier(t[k + 2].text(sql));
        if (k + 4 < t.size() && sql[t[k + 3].pos] == u',' && t[k + 4].kind == Tok::String)
            entryPoint = UnQuoteIdentifier(t[k + 4].text(sql));
        return !fileName.isEmpty();
    }
    return false;
}

QString fallbackVirtualModule(const QString& sql) {
    if (fallbackCommand(sql) != stCreateVirtualTable) return {};
    const std::vector<Token> t = tokenize(sql, 16);
    for (size_t k = 0; k + 1 < t.size(); ++k)
        if (isWord(sql, t[k], "using")) return nameOf(sql, t[k + 1]);
    return {};
}

bool fallbackWithoutRowid(const QString& sql) {
    if (fallbackCommand(sql) != stCreateTable) return false;
    const std::vector<Token> t = tokenize(sql);
    // Table options follow the closing parenthesis of the column list.
    for (size_t k = t.size(); k-- > 0;) {
        if (t[k].kind == Tok::Punct && sql[t[k].pos] == u')') {
            for (size_t j = k + 1; j + 1 < t.size(); ++j)
                if (isWord(sql, t[j], "without") && isWord(sql, t[j + 1], "rowid")) return true;
            return false;
        }
    }
    return false;
}

QString fallbackTriggerDatabase(const QString& sql) {
    const std::vector<Token> t = tokenize(sql);
    for (size_t k = 0; k + 1 < t.size(); ++k) {
        if (!isWord(sql, t[k], "on")) continue;
        if (k + 3 < t.size() && sql[t[k + 2].pos] == u'.') return UnQuoteIdentifier(t[k + 1].text(sql));
        return {};
    }
    return {};
}

}  // namespace

void SetSQLTextServices(const TSQLTextServices& s) { services() = s; }

void ParseSQL(const QString& Value, QStringList& List, bool StripSemicolon) {
    if (services().ParseSQL) return services().ParseSQL(Value, List, StripSemicolon);
    fallbackParseSQL(Value, List, StripSemicolon);
}

TSQLTokenType GetSQLCommand(const QString& SQL) {
    return services().GetSQLCommand ? services().GetSQLCommand(SQL) : fallbackCommand(SQL);
}

QString GetSavepointName(const QString& SQL) {
    return services().GetSavepointName ? services().GetSavepointName(SQL) : fallbackSavepointName(SQL);
}

QString GetDatabaseNameFromSQL(const QString& SQL) {
    return services().GetDatabaseNameFromSQL ? services().GetDatabaseNameFromSQL(SQL) : fallbackDatabaseName(SQL);
}

QString GetFileNameFromSQL(const QString& SQL) {
    return services().GetFileNameFromSQL ? services().GetFileNameFromSQL(SQL) : fallbackFileName(SQL);
}

bool GetLoadExtensionParams(const QString& SQL, QString& FileName, QString& EntryPoint) {
    if (services().GetLoadExtensionParams) return services().GetLoadExtensionParams(SQL, FileName, EntryPoint);
    return fallbackLoadExtension(SQL, FileName, EntryPoint);
}

QString GetVirtualTableModule(const QString& SQL) {
    return services().GetVirtualTableModule ? services().GetVirtualTableModule(SQL) : fallbackVirtualModule(SQL);
}

bool IsWithoutRowid(const QString& SQL) {
    return services().IsWithoutRowid ? services().IsWithoutRowid(SQL) : fallbackWithoutRowid(SQL);
}

QString GetTriggerDatabaseName(const QString& SQL) {
    return services().GetTriggerDatabaseName ? services().GetTriggerDatabaseName(SQL)
                                             : fallbackTriggerDatabase(SQL);
}

QString GetTableNameFromSQL(const QString& SQL) {
    return services().GetTableNameFromSQL ? services().GetTableNameFromSQL(SQL) : QString();
}

int GetTableCountFromSQL(const QString& SQL) {
    return services().GetTableCountFromSQL ? services().GetTableCountFromSQL(SQL) : 0;
}

bool IsSimpleSelect(const QString& SQL) {
    return services().IsSimpleSelect && services().IsSimpleSelect(SQL);
}

bool HasOrderBy(const QString& SQL) {
    if (services().HasOrderBy) return services().HasOrderBy(SQL);
    static const QRegularExpression orderBy(QStringLiteral("\\border\\s+by\\b"),
                                            QRegularExpression::CaseInsensitiveOption);
    return SQL.contains(orderBy);
}

void GetQueryInfo(const QString& SQL, std::vector<TTableInfoRec>& Tables, std::vector<TFieldInfoRec>& Fields) {
    if (services().GetQueryInfo) services().GetQueryInfo(SQL, Tables, Fields);
}

QString GetSelectClause(const QString& SQL) {
    return services().GetSelectClause ? services().GetSelectClause(SQL) : QString();
}

bool HasSubquery(const QString& SQL) {
    return services().HasSubquery ? services().HasSubquery(SQL) : true;
}

bool HasSetOperationOrGrouping(const QString& SQL) {
    return services().HasSetOperationOrGrouping ? services().HasSetOperationOrGrouping(SQL) : true;
}

QString FixFilterExpression(const QString& SQL, const QStringList& ExcludedFieldNames) {
    return services().FixFilterExpression ? services().FixFilterExpression(SQL, ExcludedFieldNames) : SQL;
}

}  // namespace brindle
