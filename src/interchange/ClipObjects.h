// The objects that the program puts on the clipboard for parts of a table
// design (fields, indexes, constraints, foreign keys, triggers) and for
// whole tables and views by name, and their one form as bytes.
//
// The bytes are the text form of a streamed object, and nothing more:
//
//     object TClipFields
//       Items = <
//         item
//           FieldName = 'id'
//           NotNull = 'True'
//         end>
//     end
//
// Each property is "Name = value"; a collection is "<", item blocks of
// "item" ... "end", and ">"; a string list is "Items.Strings = (" with one
// string a line and ")"; the block ends with "end". Strings stand in single
// quotes with inner quotes doubled; a character below a blank or beyond
// ASCII goes as #code (its UTF-16 code) between quoted runs, so the text is
// plain ASCII and a line break inside a value never breaks a line. As the
// streaming of the framework does, an empty string and a false Boolean are
// left out; the reader gives them back as such.
//
// All values are strings but IsTemporary; Booleans and numbers of a design
// row travel as their text ("True", "False", "10").
//
// Threading: plain values and free functions, any thread.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

namespace brindle {

struct TDesignField;
struct TDesignIndex;
struct TDesignUniqueConstraint;
struct TDesignCheckConstraint;
struct TDesignForeignKey;
struct TDesignTrigger;

// --- the generic text form --------------------------------------------------

struct TStreamItem;

struct TStreamProperty {
    enum TKind { pkString, pkBoolean, pkCollection, pkStrings };
    QString Name;
    TKind Kind = pkString;
    QString Text;                    // pkString
    bool Boolean = false;            // pkBoolean
    std::vector<TStreamItem> Items;  // pkCollection
    QStringList Strings;             // pkStrings
};

struct TStreamItem {
    std::vector<TStreamProperty> Properties;
    // The property of that name, null when absent.
    const TStreamProperty* Find(const QString& Name) const;
};

struct TStreamObject {
    QString ClassName;
    std::vector<TStreamProperty> Properties;
    const TStreamProperty* Find(const QString& Name) const;
};

// The text of the object, CRLF line ends, ASCII only.
QByteArray WriteObjectText(const TStreamObject& Object);
// Reads a text as WriteObjectText writes it; also takes "+" joined string
// pieces and characters beyond ASCII as UTF-8. Raises "Invalid clipboard
// data: ..." with the line for anything else.
TStreamObject ReadObjectText(const QByteArray& Bytes);

// --- the clip classes -------------------------------------------------------

struct TClipFieldInfo {
    QString FieldName, DeclaredType, FieldType, Size, Precision, NotNull, NotNullOnConflict, DefaultValue,
        Collate;
    // Behind the classic properties, written only when set: a generated
    // column's expression and "True" for a stored one.
    QString GeneratedExpression, GeneratedStored;
    bool operator==(const TClipFieldInfo&) const = default;
};
struct TClipFields {
    std::vector<TClipFieldInfo> Items;
    bool operator==(const TClipFields&) const = default;
};

struct TClipIndexFieldInfo {
    QString FieldName, Collate, SortOrder, Autoincrement;
    bool operator==(const TClipIndexFieldInfo&) const = default;
};
struct TClipIndexInfo {
    QString IndexName, IndexType, ConflictClause;
    std::vector<TClipIndexFieldInfo> Items;
    // Behind the classic properties, written only when set: the condition
    // of a partial index.
    QString WhereClause;
    bool operator==(const TClipIndexInfo&) const = default;
};
struct TClipIndexes {
    std::vector<TClipIndexInfo> Items;
    bool operator==(const TClipIndexes&) const = default;
};

struct TClipUniqueConstraintInfo {
    QString ConstraintName, Fields, ConflictClause;
    bool operator==(const TClipUniqueConstraintInfo&) const = default;
};
struct TClipUniqueConstraints {
    std::vector<TClipUniqueConstraintInfo> Items;
    bool operator==(const TClipUniqueConstraints&) const = default;
};

struct TClipCheckConstraintInfo {
    QString ConstraintName, Expression;
    bool operator==(const TClipCheckConstraintInfo&) const = default;
};
struct TClipCheckConstraints {
    std::vector<TClipCheckConstraintInfo> Items;
    bool operator==(const TClipCheckConstraints&) const = default;
};

struct TClipForeignKeyInfo {
    QString ConstraintName, ParentTableName, ChildKey, ParentKey, OnDeleteAction, OnUpdateAction, MatchName,
        Deferrable, Initially;
    bool operator==(const TClipForeignKeyInfo&) const = default;
};
struct TClipForeignKeys {
    std::vector<TClipForeignKeyInfo> Items;
    bool operator==(const TClipForeignKeys&) const = default;
};

struct TClipTriggerInfo {
    QString TriggerName, SQL;
    bool IsTemporary = false;
    bool operator==(const TClipTriggerInfo&) const = default;
};
struct TClipTriggers {
    std::vector<TClipTriggerInfo> Items;
    bool operator==(const TClipTriggers&) const = default;
};

struct TClipObjects {
    QString DatabaseAlias;
    QStringList Items;  // object names
    bool operator==(const TClipObjects&) const = default;
};

// The object's bytes. The class name in the text is the type's name.
QByteArray ComponentToBytes(const TClipFields& Clip);
QByteArray ComponentToBytes(const TClipIndexes& Clip);
QByteArray ComponentToBytes(const TClipUniqueConstraints& Clip);
QByteArray ComponentToBytes(const TClipCheckConstraints& Clip);
QByteArray ComponentToBytes(const TClipForeignKeys& Clip);
QByteArray ComponentToBytes(const TClipTriggers& Clip);
QByteArray ComponentToBytes(const TClipObjects& Clip);

// Reads bytes back. No bytes give false and leave Clip alone; a text of
// another class also gives false; a malformed text raises. Properties that
// the class does not know are passed over.
bool BytesToComponent(const QByteArray& Bytes, TClipFields& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipIndexes& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipUniqueConstraints& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipCheckConstraints& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipForeignKeys& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipTriggers& Clip);
bool BytesToComponent(const QByteArray& Bytes, TClipObjects& Clip);

// --- design rows and clip items -----------------------------------------------

// Rows of a design as clip objects and back. A Boolean goes as "True" or
// "False" and reads back true from "True" or "1" in any case.
TClipFields ClipFromFields(const std::vector<TDesignField>& Fields);
std::vector<TDesignField> FieldsFromClip(const TClipFields& Clip);
TClipIndexes ClipFromIndexes(const std::vector<TDesignIndex>& Indexes);
std::vector<TDesignIndex> IndexesFromClip(const TClipIndexes& Clip);
TClipUniqueConstraints ClipFromUniqueConstraints(const std::vector<TDesignUniqueConstraint>& Constraints);
std::vector<TDesignUniqueConstraint> UniqueConstraintsFromClip(const TClipUniqueConstraints& Clip);
TClipCheckConstraints ClipFromCheckConstraints(const std::vector<TDesignCheckConstraint>& Constraints);
std::vector<TDesignCheckConstraint> CheckConstraintsFromClip(const TClipCheckConstraints& Clip);
TClipForeignKeys ClipFromForeignKeys(const std::vector<TDesignForeignKey>& ForeignKeys);
std::vector<TDesignForeignKey> ForeignKeysFromClip(const TClipForeignKeys& Clip);
TClipTriggers ClipFromTriggers(const std::vector<TDesignTrigger>& Triggers);
std::vector<TDesignTrigger> TriggersFromClip(const TClipTriggers& Clip);

}  // namespace brindle
