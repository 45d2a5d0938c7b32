// Completion in the SQL editor: the statement at the caret, the word being
// typed, the proposals over a real database (cases in
// tests/fixtures/completion/proposals.txt), and the code templates.
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/CodeComplete.h"
#include "workbench/EditorText.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QRegularExpression>
#include <memory>

using namespace brindle;

namespace {

// A fixture file of cases:
//
//   # comment                 (between cases)
//   @schema ... @end          (statements run once, before the cases)
//   === name of the case
//   input lines
//   ---
//   expected lines
//
// In both parts \r, \n, \t and \\ stand for carriage return, line feed, tab
// and backslash.
struct TCase {
    QString Name;
    int Line = 0;
    QStringList Input;
    QStringList Expected;
};

struct TCaseFile {
    QString Schema;
    std::vector<TCase> Cases;
};

QString Unescape(const QString& line) {
    QString out;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line[i] != u'\\' || i + 1 == line.size()) {
            out += line[i];
            continue;
        }
        const QChar c = line[++i];
        out += c == u't' ? QChar(u'\t') : c == u'r' ? QChar(u'\r') : c == u'n' ? QChar(u'\n') : c;
    }
    return out;
}

TCaseFile ReadCases(const QString& name) {
    TCaseFile result;
    QFile file(QStringLiteral(BRINDLE_TEST_DATA "/completion/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        ADD_FAILURE() << "cannot read " << file.fileName().toStdString();
        return result;
    }
    enum { Outside, Schema, Input, Expected } part = Outside;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i];
        if (line.startsWith(QLatin1String("=== "))) {
            result.Cases.push_back({line.mid(4).trimmed(), i + 1, {}, {}});
            part = Input;
        } else if (part == Outside && line.trimmed() == QLatin1String("@schema")) {
            part = Schema;
        } else if (part == Schema) {
            if (line.trimmed() == QLatin1String("@end"))
                part = Outside;
            else
                result.Schema += line + u'\n';
        } else if (part == Input && line == QLatin1String("---")) {
            part = Expected;
        } else if (part == Input) {
            result.Cases.back().Input << Unescape(line);
        } else if (part == Expected && !line.startsWith(u'#')) {
            result.Cases.back().Expected << Unescape(line);
        }
    }
    for (TCase& c : result.Cases)
        while (!c.Expected.isEmpty() && c.Expected.last().trimmed().isEmpty()) c.Expected.removeLast();
    return result;
}

// The caret marked by "|" in the input lines: the lines without the mark,
// and its place.
void TakeCaret(const QStringList& Marked, QStringList& Lines, int& Line, int& Column) {
    Lines = Marked;
    Line = 0;
    Column = 0;
    for (int i = 0; i < Lines.size(); ++i) {
        const qsizetype at = Lines[i].indexOf(u'|');
        if (at < 0) continue;
        Lines[i].remove(at, 1);
        Line = i;
        Column = static_cast<int>(at);
        return;
    }
}

// An item as the fixtures write it: "kind name", and " => insert" when what
// goes into the text differs from the name.
QString Describe(const TCompletionItem& Item) {
    QString text = Item.Kind + u' ' + Item.Name;
    if (Item.Insert != Item.Name) text += QStringLiteral(" => ") + Item.Insert;
    return text;
}

// The proposal for a text before the caret, described and joined by "; ".
std::string Listed(TDLSQLiteDatabase* Database, const char* Before) {
    QStringList names;
    for (const TCompletionItem& item :
         CompletionProposal(Database, QString::fromUtf8(Before), QString(), QString()))
        names << Describe(item);
    return names.join(QStringLiteral("; ")).toStdString();
}

// A database file with "aux" attached, made from a fixture's schema.
class CompletionDatabase {
public:
    explicit CompletionDatabase(const QString& Schema) {
        FDatabase = std::make_unique<TDLSQLiteDatabase>();
        FDatabase->FShowWaitCursor = false;
        FDatabase->SetFileName(FDir.file(QStringLiteral("main.db")));
        FDatabase->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        FDatabase->Attach(FDir.file(QStringLiteral("aux.db")), QStringLiteral("aux"));
        if (!Schema.isEmpty()) FDatabase->Execute(Schema);
    }
    TDLSQLiteDatabase* get() { return FDatabase.get(); }

private:
    test::TempDir FDir;
    std::unique_ptr<TDLSQLiteDatabase> FDatabase;
};

class CodeComplete : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    // The proposal for lines with a "|" caret, the word before it taken as
    // the editor would.
    static std::vector<TCompletionItem> Propose(TDLSQLiteDatabase* Database, const QStringList& Marked) {
        QStringList lines;
        int line, column;
        TakeCaret(Marked, lines, line, column);
        QString before, after;
        GetEditorText(lines, line, column, before, after);
        return CompletionProposal(Database, before, after, GetCurrentInput(before));
    }
};

}  // namespace

// Each case: a statement with the caret marked, then the first proposals in
// order. A last line "..." lets more follow, "... N in all" gives their count;
// without either the list is complete.
TEST_F(CodeComplete, ProposalsFromFixture) {
    const TCaseFile file = ReadCases(QStringLiteral("proposals.txt"));
    ASSERT_FALSE(file.Cases.empty());
    CompletionDatabase database(file.Schema);
    static const QRegularExpression tail(QStringLiteral("^\\.\\.\\.(?: (\\d+) in all)?$"));
    for (const TCase& c : file.Cases) {
        SCOPED_TRACE(QStringLiteral("line %1: %2").arg(c.Line).arg(c.Name).toStdString());
        const std::vector<TCompletionItem> items = Propose(database.get(), c.Input);
        QStringList actual;
        for (const TCompletionItem& item : items) actual << Describe(item);
        QStringList expected = c.Expected;
        bool prefix = false;
        if (!expected.isEmpty()) {
            const QRegularExpressionMatch m = tail.match(expected.last());
            if (m.hasMatch()) {
                prefix = true;
                expected.removeLast();
                if (m.hasCaptured(1)) {
                    EXPECT_EQ(actual.size(), m.captured(1).toInt());
                }
            }
        }
        EXPECT_EQ((prefix ? actual.mid(0, expected.size()) : actual).join(u'\n').toStdString(),
                  expected.join(u'\n').toStdString());
    }
}

TEST_F(CodeComplete, BehindASemicolonOrABegunFirstWordTheProposalStartsOver) {
    CompletionDatabase database{QStringLiteral("create table t(a, b); create view v as select a from t;")};
    auto describe = [&](const QStringList& Marked) {
        QStringList names;
        for (const TCompletionItem& item : Propose(database.get(), Marked)) names << Describe(item);
        return names;
    };
    const QStringList empty = describe({QStringLiteral("|")});
    ASSERT_GT(empty.size(), 240);
    EXPECT_EQ(describe({QStringLiteral("select a from t;|")}), empty);
    EXPECT_EQ(describe({QStringLiteral("select a from t;"), QStringLiteral("|")}), empty);
    EXPECT_EQ(describe({QStringLiteral("sel|")}), empty);
    EXPECT_EQ(describe({QStringLiteral("select 1; upd|ate t set a = 1")}), empty);
}

TEST_F(CodeComplete, ItemTextCarriesPriorityKindNameAndInsert) {
    const QString text =
        ProposalItemText(9, QStringLiteral("table"), QStringLiteral("order"), QStringLiteral("[order]"));
    EXPECT_EQ(text, QStringLiteral("5table\\column{}\\style{+B}order\\style{-B}\x01[order]"));
    EXPECT_TRUE(ProposalItemText(-3, QStringLiteral("database"), QStringLiteral("x"), QStringLiteral("x"))
                    .startsWith(u'0'));
    const TCompletionItem item = SplitProposalItem(text);
    EXPECT_EQ(item.Display, QStringLiteral("table\\column{}\\style{+B}order\\style{-B}"));
    EXPECT_EQ(item.Insert, QStringLiteral("[order]"));
    EXPECT_EQ(item.Kind, QStringLiteral("table"));
    EXPECT_EQ(item.Name, QStringLiteral("order"));
    EXPECT_EQ(item.Priority, 5);
}

TEST_F(CodeComplete, NamesThatReadAsKeywordsOrAreNoIdentifiersGoInQuoted) {
    for (const char* bare : {"customers", "_x1", "Größe"}) {
        EXPECT_EQ(CompletionName(QString::fromUtf8(bare)), QString::fromUtf8(bare));
    }
    // Keywords the engine takes for names anywhere stay bare.
    for (const char* bare : {"Key", "total", "temp", "count"})
        EXPECT_EQ(CompletionName(QLatin1String(bare)), QLatin1String(bare));
    for (const char* quoted : {"order", "Group", "select", "left", "cast"}) {
        EXPECT_EQ(CompletionName(QLatin1String(quoted)), u'[' + QLatin1String(quoted) + u']');
    }
    EXPECT_EQ(CompletionName(QStringLiteral("e-mail")), QStringLiteral("[e-mail]"));
    EXPECT_EQ(CompletionName(QStringLiteral("1st")), QStringLiteral("[1st]"));
    EXPECT_EQ(CompletionName(QStringLiteral("two words")), QStringLiteral("[two words]"));
}

TEST_F(CodeComplete, WordBeingTyped) {
    const struct {
        const char* Before;
        const char* Input;
    } cases[] = {
        {"", ""},
        {"sel", "sel"},
        {"select * from cust", "cust"},
        {"select a.", ""},
        {"select a.na", "na"},
        {"select * from t where a = 1 ", ""},
        {"select * from Grö", "Grö"},
        {"select * from t1\r\nwhere t1_", "t1_"},
        {"select * from [My Ta", "[My Ta"},
        {"select * from \"a\"\"b", "\"a\"\"b"},
        {"select * from \"done\"", ""},
        {"select 'it''s", "'it''s"},
        {"select 1 -- a comm", ""},
        {"select /* x */ na", "na"},
        {"select /* na", ""},
        {"select 1;", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(GetCurrentInput(QString::fromUtf8(c.Before)), QString::fromUtf8(c.Input)) << c.Before;
}

// Lines with a "|" caret; expected "before: ..." and "after: ..." once cut to
// the statement at the caret.
TEST_F(CodeComplete, StatementAtTheCaretFromFixture) {
    const TCaseFile file = ReadCases(QStringLiteral("statements.txt"));
    ASSERT_FALSE(file.Cases.empty());
    for (const TCase& c : file.Cases) {
        SCOPED_TRACE(QStringLiteral("line %1: %2").arg(c.Line).arg(c.Name).toStdString());
        QStringList lines;
        int line, column;
        TakeCaret(c.Input, lines, line, column);
        QString before, after;
        GetEditorText(lines, line, column, before, after);
        SeparateStatements(before, after);
        ASSERT_EQ(c.Expected.size(), 2);
        EXPECT_EQ((QStringLiteral("before: ") + before).toStdString(), c.Expected[0].toStdString());
        EXPECT_EQ((QStringLiteral("after: ") + after).toStdString(), c.Expected[1].toStdString());
    }
}

TEST_F(CodeComplete, EditorTextJoinsLinesWithCRLFAndClampsTheCaret) {
    const QStringList lines{QStringLiteral("select a,"), QStringLiteral("  b from t"),
                            QStringLiteral("where 1")};
    QString before, after;
    GetEditorText(lines, 1, 4, before, after);
    EXPECT_EQ(before, QStringLiteral("select a,\r\n  b "));
    EXPECT_EQ(after, QStringLiteral("from t\r\nwhere 1"));
    GetEditorText(lines, 2, 99, before, after);  // behind the last line's end
    EXPECT_EQ(before, QStringLiteral("select a,\r\n  b from t\r\nwhere 1"));
    EXPECT_EQ(after, QStringLiteral("\r\n"));
    GetEditorText(lines, -1, -5, before, after);
    EXPECT_EQ(before, QString());
    EXPECT_EQ(after, QStringLiteral("select a,\r\n  b from t\r\nwhere 1"));
    GetEditorText(lines, 7, 0, before, after);
    EXPECT_EQ(before, QStringLiteral("select a,\r\n  b from t\r\n"));
    GetEditorText({}, 0, 0, before, after);
    EXPECT_TRUE(before.isEmpty() && after.isEmpty());
    // A surrogate pair counts two code units.
    GetEditorText({QString::fromUtf8("x\xF0\x9F\x98\x80y")}, 0, 3, before, after);
    EXPECT_EQ(before, QString::fromUtf8("x\xF0\x9F\x98\x80"));
}

TEST_F(CodeComplete, ExpectedTokensLeaveOutTheWordBeingTyped) {
    const TTokenTypes start = GetExpectedTokens(QStringLiteral("select 1; sel"), QStringLiteral("sel"));
    EXPECT_TRUE(start.Contains(stSelect) && start.Contains(stTableName) && start.Contains(stPragmaName));
    const TTokenTypes from =
        GetExpectedTokens(QStringLiteral("select * from [My Ta"), QStringLiteral("[My Ta"));
    EXPECT_TRUE(from.Contains(stTableName) && !from.Contains(stFieldName));
}

TEST_F(CodeComplete, SavepointsOfTheConnectionAreOffered) {
    CompletionDatabase database{QString()};
    database.get()->Execute(QStringLiteral("savepoint first_one"));
    database.get()->Execute(QStringLiteral("savepoint \"Second One\""));
    EXPECT_EQ(Listed(database.get(), "release "),
              "savepoint first_one; savepoint Second One => [Second One]; command SAVEPOINT");
    database.get()->Execute(QStringLiteral("rollback"));
}

// Completion reads, never writes, and a failing read leaves the others'
// items; without a database only the fixed words come.
TEST_F(CodeComplete, BrokenSchemaAndClosedDatabaseStillPropose) {
    CompletionDatabase database{QStringLiteral(
        "create table t(a); create view v as select a from t; drop table t; create table u(b);")};
    const QString version = database.get()->GetStringValue(QStringLiteral("pragma main.schema_version"));
    EXPECT_EQ(Listed(database.get(), "select * from "), "database aux; database main; table u; view v");
    EXPECT_EQ(Listed(database.get(), "select v."), "field *");  // the view cannot be read
    EXPECT_EQ(database.get()->GetStringValue(QStringLiteral("pragma main.schema_version")), version);
    EXPECT_EQ(database.get()->GetTotalChanges(), 0);

    database.get()->SetConnected(false);
    EXPECT_EQ(Listed(database.get(), "select * from "), "");
    EXPECT_EQ(CompletionProposal(nullptr, QStringLiteral("pragma "), QString(), QString()).size(), 27u);
}

// A library older than pragma table_list answers it with nothing at all; the
// schema table is read instead, shadow tables still left out.
TEST_F(CodeComplete, AnOlderLibraryReadsTheSchemaTable) {
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(QStringLiteral("libsqlcipher.so.0")));
    {
        CompletionDatabase database{QStringLiteral(
            "create table u(b); create view v as select b from u;"
            "create virtual table docs using fts4(body); create virtual table box using rtree(id, x0, x1);")};
        EXPECT_EQ(Listed(database.get(), "select * from "),
                  "database aux; database main; table box; table docs; table u; view v");
    }
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
}

TEST_F(CodeComplete, TemplatesParseAndExpand) {
    const std::vector<TCodeTemplate> templates =
        ParseCodeTemplates(QStringLiteral("# comment\n"
                                          "stray line before any header\n"
                                          "[a | first one]\r\n"
                                          "SELECT a || b\r\n"
                                          "FROM |\r\n"
                                          "\r\n"
                                          "[ | no name]\n"
                                          "ignored\n"
                                          "[b]\n"
                                          "no caret\n"));
    ASSERT_EQ(templates.size(), 2u);
    EXPECT_EQ(templates[0].Name, QStringLiteral("a"));
    EXPECT_EQ(templates[0].Description, QStringLiteral("first one"));
    EXPECT_EQ(templates[0].Body, QStringLiteral("SELECT a || b\r\nFROM |"));
    EXPECT_EQ(templates[1].Description, QString());
    QString text;
    int caret = 0;
    ASSERT_TRUE(ExpandCodeTemplate(templates, QStringLiteral("A"), text, caret));
    EXPECT_EQ(text, QStringLiteral("SELECT a | b\r\nFROM "));
    EXPECT_EQ(caret, text.size());
    ASSERT_TRUE(ExpandCodeTemplate(templates, QStringLiteral("b"), text, caret));
    EXPECT_EQ(caret, text.size());
    EXPECT_FALSE(ExpandCodeTemplate(templates, QStringLiteral("zz"), text, caret));
    EXPECT_EQ(text, QStringLiteral("no caret"));

    // The built-in ones: every one has a name, a description and a caret.
    ASSERT_GE(DefaultCodeTemplates().size(), 10u);
    for (const TCodeTemplate& t : DefaultCodeTemplates()) {
        EXPECT_FALSE(t.Description.isEmpty()) << t.Name.toStdString();
        EXPECT_EQ(t.Body.count(u'|'), 1) << t.Name.toStdString();
    }
    ASSERT_TRUE(ExpandCodeTemplate(QStringLiteral("sel"), text, caret));
    EXPECT_EQ(text, QStringLiteral("SELECT * FROM "));
    EXPECT_EQ(caret, 14);
}
