#include "ClipboardFormats.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace brindle {

QString ClipboardMimeType(const QString& Format) {
    if (Format == CF_CSV) return QStringLiteral("text/csv");
    QString key = Format.toLower();
    if (key.startsWith(QLatin1String("brindle "))) key = key.mid(8);
    key.replace(u' ', u'-');
    return QStringLiteral("application/x-brindle-") + key;
}

void SetFormatBytes(QMimeData& Data, const QString& Format, const QByteArray& Bytes) {
    Data.setData(ClipboardMimeType(Format), Bytes);
}

bool ClipboardGetBytes(const QString& Format, QByteArray& Bytes) {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    const QString mime = ClipboardMimeType(Format);
    if (!data || !data->hasFormat(mime)) return false;
    Bytes = data->data(mime);
    return true;
}

bool ClipboardHasFormat(const QString& Format) {
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    return data && data->hasFormat(ClipboardMimeType(Format));
}

}  // namespace brindle
