// The statement at the caret of a SQL editor, as completion and the run of
// the current statement need it. Headless: the editor hands over its lines
// and caret.
#pragma once

#include <QString>
#include <QStringList>

namespace brindle {

// The text around the caret. SQLBefore is every line above the caret, each
// followed by CRLF, then the caret line up to the caret; SQLAfter is the caret
// line from the caret on, CRLF, then the lines below joined with CRLF (none
// behind the last). CaretLine and CaretColumn count from 0, the column in
// UTF-16 code units; values outside the text are pulled to its nearest edge.
// No lines give two empty texts.
void GetEditorText(const QStringList& Lines, int CaretLine, int CaretColumn, QString& SQLBefore,
                   QString& SQLAfter);

// Cuts both texts down to the statement the caret stands in: SQLBefore to
// its part before the caret (empty right behind a ";", where a new statement
// begins), SQLAfter to its part behind the caret.
void SeparateStatements(QString& SQLBefore, QString& SQLAfter);

}  // namespace brindle
