// Binary data as SQL text, three-way comparisons, and small value helpers.
#pragma once

#include <QByteArray>
#include <QString>
#include <QUuid>
#include <QVariant>
#include <QVariantList>
#include <cstddef>
#include <cstdint>

namespace brindle {

// Two upper-case hex digits a byte.
QString BytesToHex(const QByteArray& value);
// Raises "Conversion error hex to string" for odd length, a bad digit or
// the empty text.
QByteArray HexBytesToBytes(const QString& value);
// x'..' literal.
QString EncodeBinary(const QByteArray& value);
// The 16 bytes of the GUID in memory order (first three groups little-endian).
QString EncodeBinary(const QUuid& value);
QByteArray DecodeBinary(const QString& value);
bool IsBinaryEncoded(const QString& value);

int CompareCardinal(uint32_t a, uint32_t b);
int CompareBool(bool a, bool b);
int CompareInt64(int64_t a, int64_t b);
int CompareFloat(double a, double b);
int CompareCurrency(int64_t a, int64_t b);
int CompareDateTime(double a, double b);
// Empty sorts after everything; otherwise byte order, then the shorter first.
int CompareBytes(const QByteArray& a, const QByteArray& b);
// -1, 0 or 1 by the first differing byte, unsigned.
int MemCmp(const void* p1, const void* p2, std::size_t length);

// Null gives an empty list; a non-list value a list of that one value; a list
// loses its last element (the high bound is taken as the length).
QVariantList VariantToVariantArray(const QVariant& value);

// GUID values: QUuid in a QVariant stands for the custom GUID variant type.
QByteArray GUIDToBytes(const QUuid& value);   // memory order, 16 bytes
QUuid BytesToGUID(const QByteArray& bytes);   // inverse of GUIDToBytes; raises unless 16 bytes
QString GUIDToString(const QUuid& value);     // "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"
QUuid StringToGUID(const QString& value);     // raises on bad text
extern const QUuid NullGUID;
// Compares two GUID variants byte-wise; raises when either is no GUID.
int CompareGUIDVariants(const QVariant& a, const QVariant& b);

}  // namespace brindle
