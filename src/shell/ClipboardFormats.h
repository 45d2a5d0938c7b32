// The program's clipboard formats on the toolkit's clipboard: each named
// format is one MIME type, "Brindle Field" as application/x-brindle-field,
// holding exactly the bytes of its object (interchange/ClipObjects.h);
// "CSV" is text/csv and the platform's text is text/plain.
//
// Threading: main thread only (the clipboard's rule).
#pragma once

#include <QByteArray>
#include <QString>

class QMimeData;

namespace brindle {

inline const QString CF_CSV = QStringLiteral("CSV");
inline const QString CF_SE_FIELD = QStringLiteral("Brindle Field");
inline const QString CF_SE_INDEX = QStringLiteral("Brindle Index");
inline const QString CF_SE_CHECK_CONSTRAINT = QStringLiteral("Brindle Check Constraint");
inline const QString CF_SE_UNIQUE_CONSTRAINT = QStringLiteral("Brindle Unique Constraint");
inline const QString CF_SE_TRIGGER = QStringLiteral("Brindle Trigger");
inline const QString CF_SE_OBJECTS = QStringLiteral("Brindle Objects");
inline const QString CF_SE_FOREIGN_KEY = QStringLiteral("Brindle Foreign Key");

// "Brindle Check Constraint" gives "application/x-brindle-check-constraint",
// "CSV" "text/csv".
QString ClipboardMimeType(const QString& Format);

// Puts the bytes under the format into Data, which the caller hands to the
// clipboard, so that several formats go in one transaction.
void SetFormatBytes(QMimeData& Data, const QString& Format, const QByteArray& Bytes);
// The clipboard's bytes of the format; false when it has none.
bool ClipboardGetBytes(const QString& Format, QByteArray& Bytes);
bool ClipboardHasFormat(const QString& Format);

}  // namespace brindle
