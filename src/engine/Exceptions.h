// Exceptions of the program: a message plus named parameters that error
// dialogs and the crash reporter read.
#pragma once

#include <QString>
#include <QStringList>
#include <exception>
#include <string>

namespace brindle {

// The root of every exception the program raises on purpose. A "plain"
// exception is an ECustomException without parameters. Not thread-safe; an
// exception belongs to the thread that raised it.
class ECustomException : public std::exception {
public:
    explicit ECustomException(const QString& msg);
    ECustomException(const QString& msg, const QString& name, const QString& value);

    const QString& message() const { return FMessage; }
    void setMessage(const QString& msg);

    // Adds the parameter or replaces its value.
    void SetParam(const QString& name, const QString& value);
    // Empty when the parameter is absent.
    QString GetParam(const QString& name) const;
    const QStringList& Names() const { return FNames; }
    const QStringList& Values() const { return FValues; }

    const char* what() const noexcept override { return FWhat.c_str(); }

private:
    QString FMessage;
    QStringList FNames;
    QStringList FValues;
    std::string FWhat;  // UTF-8 copy of FMessage for what()
};

// An engine failure, raised only through the database's error road, which
// adds alias, file, statement and parameters.
class ESQLiteException : public ECustomException {
public:
    using ECustomException::ECustomException;
};

}  // namespace brindle
