#include "Exceptions.h"

namespace brindle {

ECustomException::ECustomException(const QString& msg) { setMessage(msg); }

ECustomException::ECustomException(const QString& msg, const QString& name, const QString& value) {
    setMessage(msg);
    SetParam(name, value);
}

void ECustomException::setMessage(const QString& msg) {
    FMessage = msg;
    FWhat = msg.toStdString();
}

void ECustomException::SetParam(const QString& name, const QString& value) {
    const qsizetype i = FNames.indexOf(name);
    if (i >= 0) {
        FValues[i] = value;
    } else {
        FNames.append(name);
        FValues.append(value);
    }
}

QString ECustomException::GetParam(const QString& name) const {
    const qsizetype i = FNames.indexOf(name);
    return i >= 0 ? FValues[i] : QString();
}

}  // namespace brindle
