#include "EditorText.h"

#include "engine/SQLText.h"

#include <algorithm>

namespace brindle {

namespace {

const QString LineBreak = QStringLiteral("\r\n");

}  // namespace

void GetEditorText(const QStringList& Lines, int CaretLine, int CaretColumn, QString& SQLBefore,
                   QString& SQLAfter) {
    SQLBefore.clear();
    SQLAfter.clear();
    if (Lines.isEmpty()) return;
    const qsizetype line = std::clamp<qsizetype>(CaretLine, 0, Lines.size() - 1);
    const QString& caretLine = Lines.at(line);
    const qsizetype column = std::clamp<qsizetype>(CaretColumn, 0, caretLine.size());
    for (qsizetype i = 0; i < line; ++i) {
        SQLBefore += Lines.at(i);
        SQLBefore += LineBreak;
    }
    SQLBefore += QStringView(caretLine).left(column);
    SQLAfter = caretLine.mid(column) + LineBreak + Lines.mid(line + 1).join(LineBreak);
}

void SeparateStatements(QString& SQLBefore, QString& SQLAfter) {
    QStringList statements;
    ParseSQL(SQLBefore, statements, false);
    if (statements.isEmpty()) {
        SQLBefore.clear();
    } else {
        // Behind a finished statement the caret begins the next one.
        SQLBefore = statements.last();
        if (SQLBefore.endsWith(u';')) SQLBefore.clear();
    }
    statements.clear();
    ParseSQL(SQLBefore + SQLAfter, statements, false);
    SQLAfter = statements.isEmpty() ? QString() : statements.first().mid(SQLBefore.size());
}

}  // namespace brindle
