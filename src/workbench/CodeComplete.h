// Completion in the SQL editor: what may come next at the caret. The labelled
// tokens of the statement before the caret pick a set of expected token
// types through one hand-written rule table, and each type turns into
// proposal items: commands, keywords, type and pragma names, and the names
// the open database holds, read live at each request. Nothing here changes
// the database.
//
// Threading: main thread only, on the connection of the active editor.
#pragma once

#include "schema/DLSQLiteParser.h"

#include <QString>
#include <QStringList>
#include <map>
#include <vector>

namespace brindle {

class TDLSQLiteDatabase;

// A plain copy of a labelled token, so that a token list outlives its parser.
struct TSQLTokenItem {
    TSQLTokenType FSQLToken = stUnknown;
    TSQLTokenType FSection = stUnknown;
    QString FValue;
};
using TSQLTokenItems = std::vector<TSQLTokenItem>;

using TTokenTypes = TSQLTokenTypes;

// Every token type: what the editor offers when no rule knows better.
inline constexpr TTokenTypes AllTokenTypes{
#define BRINDLE_ALL_TOKEN_TYPES_ITEM(name) st##name,
    BRINDLE_SQL_TOKEN_TYPES(BRINDLE_ALL_TOKEN_TYPES_ITEM)
#undef BRINDLE_ALL_TOKEN_TYPES_ITEM
};

// The labelled tokens of SQL, from a parser of its own (the shared parser
// cache stays untouched).
TSQLTokenItems GetTokens(const QString& SQL);

// The word being typed right before the caret: the run of name characters
// (letters, digits, "_" and anything from U+0080 up) at the end of
// SQLBefore, or, when the caret line ends inside a quote begun on it, the
// text from that quote on. Empty inside a comment.
QString GetCurrentInput(const QString& SQLBefore);

// The token types that may follow TokensBefore: those of the first rule of
// the table that matches its tail, or AllTokenTypes when none does.
TTokenTypes FindCandidates(const TSQLTokenItems& TokensBefore);

// The expected types at a caret behind SQLBefore (the editor's text before
// the caret, whole or cut to the statement). With CurrentInput not empty
// the word being typed is left out of the tokens first.
TTokenTypes GetExpectedTokens(const QString& SQLBefore, const QString& CurrentInput);

// One completion request as the item sources see it.
struct TCompletionContext {
    TDLSQLiteDatabase* Database = nullptr;  // not owned; null or closed: no names
    QString SQLBefore;                      // the statement at the caret, cut by SeparateStatements
    QString SQLAfter;
    QString CurrentInput;
    TSQLTokenItems TokensBefore;  // of SQLBefore, without the word being typed
    // Table and view names read once per database and request.
    struct TSchemaNames {
        QStringList Tables;
        QStringList Views;
    };
    std::map<QString, TSchemaNames> SchemaNames;
};

// The text of one proposal item: priority (clamped to 0..5), kind word,
// shown name and, behind the character with code 1, the text to insert, in
// the form "%d%s\column{}\style{+B}%s\style{-B}%s%s". A list of such texts
// sorts by priority, then kind, then name.
QString ProposalItemText(int Priority, const QString& Kind, const QString& Shown, const QString& Insert);
// A name as it goes into the text: quoted when it is no plain identifier
// or a keyword that the engine does not take for a name everywhere.
QString CompletionName(const QString& Name);

// Appends the items of every type in Types. A source that fails to read is
// passed over: the list keeps what the others gave. The three sources below
// raise the engine's exceptions; AddItems catches them.
void AddItems(TCompletionContext& Context, const TTokenTypes& Types, QStringList& List);
// Tables (without system and shadow tables) and views: of the database
// named right before the caret ("db."), else of temp and main.
void AddTableNames(TCompletionContext& Context, QStringList& List);
void AddViewNames(TCompletionContext& Context, QStringList& List);
// The columns of the table (or view, or alias of one) that the statement
// names last before the caret; in CREATE TABLE only inside a REFERENCES list.
void AddFieldNames(TCompletionContext& Context, QStringList& List);
// Sorts by priority, kind and name, each case-blind first, and drops
// repeated texts.
void SortProposalList(QStringList& List);

// One proposal as the editor's list shows and inserts it.
struct TCompletionItem {
    QString Display;  // the item text without priority and insert part: kind, column mark, bold name
    QString Insert;   // what goes into the text
    QString Kind;     // "database", "table", "view", "field", "keyword", ...
    int Priority = 5;
    QString Name;  // the shown name without marks
};

// Splits an item text made by ProposalItemText.
TCompletionItem SplitProposalItem(const QString& ItemText);

// The sorted proposal at a caret. SQLBefore and SQLAfter are the editor's
// text as GetEditorText gives it; the statement at the caret is cut out
// here. Never throws: a failure leaves the items gathered so far.
std::vector<TCompletionItem> CompletionProposal(TDLSQLiteDatabase* Database, const QString& SQLBefore,
                                                const QString& SQLAfter, const QString& CurrentInput);

// Code templates: short names that expand to a statement skeleton.
struct TCodeTemplate {
    QString Name;
    QString Description;
    QString Body;  // lines joined by CRLF; "|" marks the caret, "||" is one "|"
};

// The built-in templates as text: a header line "[name | description]",
// then the body up to the next header; lines starting with "#" are comments.
const QString& DefaultCodeTemplatesText();
// Reads such a text; headers without a name are passed over, and empty
// lines at the end of a body dropped.
std::vector<TCodeTemplate> ParseCodeTemplates(const QString& Text);
const std::vector<TCodeTemplate>& DefaultCodeTemplates();
// The body of the template called Name (case-blind) with its caret mark
// taken out, and the caret's offset in it (the end when there is no mark).
// False, and nothing changed, for an unknown name.
bool ExpandCodeTemplate(const std::vector<TCodeTemplate>& Templates, const QString& Name, QString& Text,
                        int& Caret);
bool ExpandCodeTemplate(const QString& Name, QString& Text, int& Caret);

}  // namespace brindle
