// Splitting a dump-sized script into statements: ParseSQL against the
// engine's own completeness test (sqlite3_complete asked at every semicolon,
// the way a shell reads a script), on a generated dump of a million rows with
// quotes and semicolons inside strings, NULLs, blobs, and triggers with BEGIN
// ... END, so that the token-based splitter runs. Both produce the list of
// statements. Also reports the peak resident memory of the ParseSQL run
// relative to the size of the text in memory.
#include "engine/DLSQLite3API.h"
#include "engine/SQLText.h"
#include "schema/DLSQLiteParser.h"

#include <QElapsedTimer>
#include <QStringList>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

using namespace brindle;

namespace {

// The dump: schema first, then the rows, then the triggers, as a dump of the
// database would have them.
std::string MakeDump(int rows) {
    std::string s;
    s.reserve(static_cast<size_t>(rows) * 100 + 4096);
    s += "PRAGMA foreign_keys=OFF;\nBEGIN TRANSACTION;\n";
    s += "CREATE TABLE \"t\" (id INTEGER PRIMARY KEY, qty INTEGER, price REAL, name TEXT, note TEXT, data "
         "BLOB);\n";
    s += "CREATE TABLE log(id INTEGER PRIMARY KEY, what TEXT, at TEXT DEFAULT CURRENT_TIMESTAMP);\n";
    unsigned seed = 12345;
    auto next = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) & 0xFFFFFF;
    };
    char buf[64];
    for (int i = 1; i <= rows; ++i) {
        const unsigned r = next();
        s += "INSERT INTO \"t\" VALUES(";
        s += std::to_string(i);
        s += ',';
        s += std::to_string(static_cast<int>(r % 100000) - 500);
        std::snprintf(buf, sizeof buf, ",%.4f,", (r % 1000000) / 97.0);
        s += buf;
        switch (r % 4) {
            case 0:
                s += "'plain name " + std::to_string(r) + "'";
                break;
            case 1:
                s += "'it''s a name; with a semicolon'";
                break;
            case 2:
                s += "'quotes \"inside\" and -- no comment /* either */'";
                break;
            default:
                s += "NULL";
                break;
        }
        s += r % 3 == 0 ? ",NULL," : ",'note; " + std::to_string(i % 977) + "',";
        if (r % 5 == 0) {
            std::snprintf(buf, sizeof buf, "X'%08X%08X'", r, r ^ 0xA5A5A5u);
            s += buf;
        } else {
            s += "NULL";
        }
        s += ");\n";
    }
    s += "CREATE INDEX t_name ON \"t\"(name COLLATE NOCASE, qty DESC);\n";
    s += "CREATE TRIGGER t_log AFTER UPDATE OF qty ON \"t\" WHEN new.qty <> old.qty BEGIN\n"
         "  INSERT INTO log(what) VALUES (CASE WHEN new.qty > old.qty THEN 'up; ' ELSE 'down' END);\n"
         "  UPDATE \"t\" SET note = CASE new.qty WHEN 0 THEN 'none' END WHERE id = new.id;\n"
         "END;\n";
    s += "CREATE TRIGGER t_del BEFORE DELETE ON \"t\" BEGIN SELECT RAISE(ABORT, 'no; never'); END;\n";
    s += "COMMIT;\n";
    return s;
}

// A shell's way: extend the candidate to each semicolon until the engine
// calls it complete.
std::vector<std::string> SplitWithComplete(std::string& text) {
    std::vector<std::string> statements;
    TSQLite3Driver& d = *SQLite3Driver;
    char* s = text.data();
    const size_t n = text.size();
    size_t start = 0;
    for (size_t i = 0; i < n; ++i) {
        if (s[i] != ';') continue;
        const char saved = s[i + 1];
        s[i + 1] = '\0';
        const bool complete = d.sqlite3_complete(s + start) != 0;
        s[i + 1] = saved;
        if (complete) {
            statements.emplace_back(s + start, i + 1 - start);
            start = i + 1;
        }
    }
    if (start < n) statements.emplace_back(s + start, n - start);
    return statements;
}

long StatusKB(const char* field) {
    std::ifstream f("/proc/self/status");
    std::string line;
    const std::string key = std::string(field) + ":";
    while (std::getline(f, line))
        if (line.compare(0, key.size(), key) == 0) return std::stol(line.substr(key.size()));
    return -1;
}

// Starts a new peak; false where the kernel does not offer it.
bool ResetPeak() {
    std::ofstream f("/proc/self/clear_refs");
    f << "5";
    f.flush();
    return f.good();
}

}  // namespace

int main(int argc, char* argv[]) {
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    const int rows = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const int runs = 3;

    QString text;
    {
        const std::string dump = MakeDump(rows);
        text = QString::fromLatin1(dump.data(), static_cast<qsizetype>(dump.size()));
    }
    const double mb = text.size() / 1e6;
    const double textBytes = text.size() * 2.0;
    std::printf("script: %d rows, %.1f MB, %lld characters\n", rows, mb, static_cast<long long>(text.size()));

    // ParseSQL first, so that its memory is measured on a heap that holds
    // nothing but the text.
    double ours = 1e300;
    qsizetype ourCount = 0;
    long rssBefore = 0;
    long peak = 0;
    bool peakIsOurs = false;
    for (int k = 0; k < runs; ++k) {
        if (k == 0) {
            rssBefore = StatusKB("VmRSS");
            peakIsOurs = ResetPeak();
        }
        QElapsedTimer t;
        t.start();
        QStringList statements;
        ParseSQL(text, statements, false);
        ours = std::min(ours, t.nsecsElapsed() / 1e9);
        if (k == 0) peak = StatusKB("VmHWM");
        ourCount = statements.size();
    }
    double fast = 1e300;
    for (int k = 0; k < runs; ++k) {
        QElapsedTimer t;
        t.start();
        QStringList statements;
        FastParseSQL(text, statements, false);
        fast = std::min(fast, t.nsecsElapsed() / 1e9);
    }

    std::string utf8 = text.toStdString();
    double reference = 1e300;
    size_t referenceCount = 0;
    for (int k = 0; k < runs; ++k) {
        QElapsedTimer t;
        t.start();
        const std::vector<std::string> statements = SplitWithComplete(utf8);
        reference = std::min(reference, t.nsecsElapsed() / 1e9);
        referenceCount = statements.size();
    }

    std::printf("statements: ParseSQL %lld, sqlite3_complete %zu%s\n", static_cast<long long>(ourCount),
                referenceCount, static_cast<size_t>(ourCount) == referenceCount ? "" : "  (DIFFERENT)");
    std::printf("  sqlite3_complete at each ';':                       %.3f s  %.0f MB/s\n", reference,
                mb / reference);
    std::printf("  ParseSQL (token-based, as the text holds triggers): %.3f s  %.0f MB/s\n", ours, mb / ours);
    std::printf("  FastParseSQL alone (wrong on trigger bodies):       %.3f s  %.0f MB/s\n", fast, mb / fast);
    std::printf("  ratio ParseSQL/sqlite3_complete: %.2f (goal: at most 2)\n", ours / reference);
    std::printf("memory: text in memory %.0f MB (UTF-16)\n", textBytes / (1024.0 * 1024.0));
    // The statement list is itself a copy of the text, so about 2 x is the floor.
    std::printf("  peak resident during ParseSQL%s: %.0f MB = %.2f x the text (%.0f MB before it)\n",
                peakIsOurs ? "" : " (process peak)", peak / 1024.0, peak * 1024.0 / textBytes,
                rssBefore / 1024.0);
    return static_cast<size_t>(ourCount) == referenceCount ? 0 : 2;
}
