// Reads the plain-text SQL fixtures under tests/fixtures/sql. A file holds cases:
//
//   # a comment (between cases)
//   === name of the case
//   @tag                 (optional, right after the name)
//   input lines
//   ---
//   expected lines (blank ones included)
//
// In input and expected lines \t, \r, \0 and \\ stand for tab, carriage
// return, NUL and backslash.
#pragma once

#include <QFile>
#include <QString>
#include <QStringList>
#include <ostream>
#include <vector>

// Readable failure messages for texts.
inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}

namespace brindle::test {

struct TSQLCase {
    QString Name;
    int Line = 0;  // of the name, for messages
    QStringList Tags;
    QString Input;  // lines joined by line feeds
    QStringList Expected;
};

inline QString UnescapeCaseText(const QString& line) {
    QString out;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line[i] != u'\\' || i + 1 == line.size()) {
            out += line[i];
            continue;
        }
        const QChar c = line[++i];
        out += c == u't' ? QChar(u'\t') : c == u'r' ? QChar(u'\r') : c == u'0' ? QChar(u'\0') : c;
    }
    return out;
}

inline std::vector<TSQLCase> ReadSQLCases(const QString& name) {
    QFile file(QStringLiteral(BRINDLE_TEST_DATA "/sql/") + name);
    std::vector<TSQLCase> cases;
    if (!file.open(QIODevice::ReadOnly)) return cases;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    enum { Outside, Input, Expected } part = Outside;
    QStringList input;
    auto finish = [&] {
        if (part != Outside) cases.back().Input = input.join(u'\n');
        input.clear();
    };
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i];
        if (line.startsWith(QLatin1String("=== "))) {
            finish();
            cases.push_back({line.mid(4).trimmed(), i + 1, {}, {}, {}});
            part = Input;
        } else if (part == Outside) {
            continue;
        } else if (part == Input && line == QLatin1String("---")) {
            part = Expected;
        } else if (part == Input) {
            if (input.isEmpty() && line.startsWith(u'@'))
                cases.back().Tags << line.mid(1).trimmed();
            else
                input << UnescapeCaseText(line);
        } else {
            cases.back().Expected << UnescapeCaseText(line);
        }
    }
    finish();
    return cases;
}

}  // namespace brindle::test
