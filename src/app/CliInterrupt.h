// Ctrl+C for one command of brindle-cli. While a scope lives, SIGINT
// interrupts the statements its databases run and asks its runner,
// importer or exporter to stop; each of these only sets a flag or calls the
// engine's interrupt, which is what a signal handler may do. The command
// then rolls back as for any failure.
#pragma once

namespace brindle {
class TDataSetExporter;
class TDLSQLiteDatabase;
class TSQLRunner;
class TTextImporter;
}  // namespace brindle

namespace brindle::cli {

// What Ctrl+C reaches; none is owned, and each must outlive the scope.
struct TInterruptTargets {
    TDLSQLiteDatabase* Database = nullptr;
    TDLSQLiteDatabase* Second = nullptr;  // a copy's other end
    TSQLRunner* Runner = nullptr;
    TTextImporter* Importer = nullptr;
    TDataSetExporter* Exporter = nullptr;
};

// Sets the handler for its lifetime and puts the old one back.
class TInterruptScope {
public:
    explicit TInterruptScope(const TInterruptTargets& Targets);
    ~TInterruptScope();
    TInterruptScope(const TInterruptScope&) = delete;
    TInterruptScope& operator=(const TInterruptScope&) = delete;

    // Whether Ctrl+C came since the scope began.
    static bool Interrupted();

private:
    void (*FPrevious)(int) = nullptr;
};

}  // namespace brindle::cli
