#include "ClipObjects.h"

#include "engine/Exceptions.h"
#include "schema/DMBrindle.h"

#include <span>
#include <utility>

namespace brindle {

namespace {

const QByteArray kLineEnd = QByteArrayLiteral("\r\n");

// --- writing ---------------------------------------------------------------

// 'text' with quotes doubled; what is no printable ASCII as #code between
// the quoted runs, so that the text stays on its line and in ASCII.
QByteArray EncodeString(const QString& Value) {
    if (Value.isEmpty()) return QByteArrayLiteral("''");
    QByteArray out;
    bool quoted = false;
    for (const QChar c : Value) {
        const char16_t u = c.unicode();
        if (u >= 32 && u < 127) {
            if (!quoted) out += '\'';
            quoted = true;
            if (u == u'\'') out += '\'';
            out += static_cast<char>(u);
        } else {
            if (quoted) out += '\'';
            quoted = false;
            out += '#' + QByteArray::number(u);
        }
    }
    if (quoted) out += '\'';
    return out;
}

void WriteProperties(QByteArray& Out, const std::vector<TStreamProperty>& Properties, int Indent);

void WriteLine(QByteArray& Out, int Indent, const QByteArray& Text) {
    Out += QByteArray(Indent, ' ') + Text + kLineEnd;
}

void WriteProperty(QByteArray& Out, const TStreamProperty& P, int Indent) {
    const QByteArray name = P.Name.toLatin1();
    switch (P.Kind) {
        case TStreamProperty::pkString:
            // Empty is the default, which streaming leaves out.
            if (!P.Text.isEmpty()) WriteLine(Out, Indent, name + " = " + EncodeString(P.Text));
            break;
        case TStreamProperty::pkBoolean:
            if (P.Boolean) WriteLine(Out, Indent, name + " = True");
            break;
        case TStreamProperty::pkCollection: {
            if (P.Items.empty()) {
                WriteLine(Out, Indent, name + " = <>");
                break;
            }
            WriteLine(Out, Indent, name + " = <");
            for (const TStreamItem& item : P.Items) {
                WriteLine(Out, Indent + 2, "item");
                WriteProperties(Out, item.Properties, Indent + 4);
                WriteLine(Out, Indent + 2, "end");
            }
            // The closing bracket stands behind the last "end".
            Out.chop(kLineEnd.size());
            Out += '>' + kLineEnd;
            break;
        }
        case TStreamProperty::pkStrings: {
            if (P.Strings.isEmpty()) break;
            WriteLine(Out, Indent, name + ".Strings = (");
            for (const QString& s : P.Strings) WriteLine(Out, Indent + 2, EncodeString(s));
            Out.chop(kLineEnd.size());
            Out += ')' + kLineEnd;
            break;
        }
    }
}

void WriteProperties(QByteArray& Out, const std::vector<TStreamProperty>& Properties, int Indent) {
    for (const TStreamProperty& p : Properties) WriteProperty(Out, p, Indent);
}

// --- reading ---------------------------------------------------------------

enum TTokenKind { tkEnd, tkIdent, tkString, tkNumber, tkSymbol };

struct TToken {
    TTokenKind Kind = tkEnd;
    QString Text;
    int Line = 1;
};

class TObjectTextReader {
public:
    explicit TObjectTextReader(const QByteArray& Bytes) : FText(QString::fromUtf8(Bytes)) { Next(); }

    TStreamObject ReadObject() {
        TStreamObject object;
        ExpectIdent(QStringLiteral("object"));
        if (FToken.Kind != tkIdent) Fail(QStringLiteral("class name expected"));
        object.ClassName = FToken.Text;
        Next();
        // "object Name: TClass" names the component; the class is what counts.
        if (IsSymbol(u':')) {
            Next();
            if (FToken.Kind != tkIdent) Fail(QStringLiteral("class name expected"));
            object.ClassName = FToken.Text;
            Next();
        }
        object.Properties = ReadProperties();
        ExpectIdent(QStringLiteral("end"));
        if (FToken.Kind != tkEnd) Fail(QStringLiteral("end of text expected"));
        return object;
    }

private:
    [[noreturn]] void Fail(const QString& What) const {
        throw ECustomException(
            QStringLiteral("Invalid clipboard data: line %1: %2").arg(FToken.Line).arg(What));
    }
    bool IsSymbol(QChar C) const { return FToken.Kind == tkSymbol && FToken.Text == C; }
    bool IsIdent(const QString& Word) const {
        return FToken.Kind == tkIdent && FToken.Text.compare(Word, Qt::CaseInsensitive) == 0;
    }
    void ExpectIdent(const QString& Word) {
        if (!IsIdent(Word)) Fail(QStringLiteral("'%1' expected").arg(Word));
        Next();
    }
    void ExpectSymbol(QChar C) {
        if (!IsSymbol(C)) Fail(QStringLiteral("'%1' expected").arg(C));
        Next();
    }

    std::vector<TStreamProperty> ReadProperties() {
        std::vector<TStreamProperty> properties;
        while (FToken.Kind == tkIdent && !IsIdent(QStringLiteral("end")) &&
               !IsIdent(QStringLiteral("object")))
            properties.push_back(ReadProperty());
        if (IsIdent(QStringLiteral("object"))) Fail(QStringLiteral("nested objects are not supported"));
        return properties;
    }

    TStreamProperty ReadProperty() {
        TStreamProperty p;
        p.Name = FToken.Text;
        Next();
        ExpectSymbol(u'=');
        if (FToken.Kind == tkString) {
            p.Kind = TStreamProperty::pkString;
            p.Text = ReadString();
        } else if (FToken.Kind == tkNumber) {
            p.Kind = TStreamProperty::pkString;
            p.Text = FToken.Text;
            Next();
        } else if (IsIdent(QStringLiteral("True")) || IsIdent(QStringLiteral("False"))) {
            p.Kind = TStreamProperty::pkBoolean;
            p.Boolean = IsIdent(QStringLiteral("True"));
            Next();
        } else if (FToken.Kind == tkIdent) {
            // An enumeration's word: kept as its text.
            p.Kind = TStreamProperty::pkString;
            p.Text = FToken.Text;
            Next();
        } else if (IsSymbol(u'<')) {
            p.Kind = TStreamProperty::pkCollection;
            Next();
            while (!IsSymbol(u'>')) {
                ExpectIdent(QStringLiteral("item"));
                TStreamItem item;
                item.Properties = ReadProperties();
                ExpectIdent(QStringLiteral("end"));
                p.Items.push_back(std::move(item));
            }
            Next();
        } else if (IsSymbol(u'(')) {
            p.Kind = TStreamProperty::pkStrings;
            if (p.Name.endsWith(QLatin1String(".Strings"), Qt::CaseInsensitive)) p.Name.chop(8);
            Next();
            while (!IsSymbol(u')')) {
                if (FToken.Kind != tkString) Fail(QStringLiteral("string expected"));
                p.Strings << ReadString();
            }
            Next();
        } else {
            Fail(QStringLiteral("value of %1 expected").arg(p.Name));
        }
        return p;
    }

    // A string token and those joined to it by "+".
    QString ReadString() {
        QString value = FToken.Text;
        Next();
        while (IsSymbol(u'+')) {
            Next();
            if (FToken.Kind != tkString) Fail(QStringLiteral("string expected"));
            value += FToken.Text;
            Next();
        }
        return value;
    }

    void Next() {
        const qsizetype n = FText.size();
        while (FPos < n && FText[FPos].isSpace()) {
            if (FText[FPos] == u'\n') ++FLine;
            ++FPos;
        }
        FToken = TToken{};
        FToken.Line = FLine;
        if (FPos >= n) return;
        const QChar c = FText[FPos];
        if (c == u'\'' || c == u'#') {
            FToken.Kind = tkString;
            FToken.Text = ScanString();
        } else if (c.isLetter() || c == u'_') {
            const qsizetype start = FPos;
            while (FPos < n && (FText[FPos].isLetterOrNumber() || FText[FPos] == u'_' || FText[FPos] == u'.'))
                ++FPos;
            FToken.Kind = tkIdent;
            FToken.Text = FText.mid(start, FPos - start);
        } else if (c.isDigit() || c == u'-') {
            const qsizetype start = FPos++;
            while (FPos < n && (FText[FPos].isDigit() || FText[FPos] == u'.')) ++FPos;
            FToken.Kind = tkNumber;
            FToken.Text = FText.mid(start, FPos - start);
        } else {
            FToken.Kind = tkSymbol;
            FToken.Text = c;
            ++FPos;
        }
    }

    // Quoted runs and #codes, with nothing between them.
    QString ScanString() {
        const qsizetype n = FText.size();
        QString value;
        while (FPos < n && (FText[FPos] == u'\'' || FText[FPos] == u'#')) {
            if (FText[FPos] == u'#') {
                const qsizetype start = ++FPos;
                while (FPos < n && FText[FPos].isDigit()) ++FPos;
                bool ok = false;
                const uint code = FText.mid(start, FPos - start).toUInt(&ok);
                if (!ok || code > 0xFFFF) Fail(QStringLiteral("invalid character code"));
                value += QChar(static_cast<char16_t>(code));
                continue;
            }
            ++FPos;
            for (;;) {
                if (FPos >= n || FText[FPos] == u'\n' || FText[FPos] == u'\r')
                    Fail(QStringLiteral("unterminated string"));
                if (FText[FPos] == u'\'') {
                    if (FPos + 1 < n && FText[FPos + 1] == u'\'') {
                        value += u'\'';
                        FPos += 2;
                        continue;
                    }
                    ++FPos;
                    break;
                }
                value += FText[FPos++];
            }
        }
        return value;
    }

    QString FText;
    qsizetype FPos = 0;
    int FLine = 1;
    TToken FToken;
};

// --- the clip classes --------------------------------------------------------

TStreamProperty StringProperty(const char* Name, const QString& Text) {
    TStreamProperty p;
    p.Name = QLatin1String(Name);
    p.Text = Text;
    return p;
}

template <typename T>
using TMember = std::pair<const char*, QString T::*>;

// The string members of an item, in stream order.
template <typename T>
void PutMembers(TStreamItem& Item, const T& Value, std::span<const TMember<T>> Members) {
    for (const auto& [name, member] : Members) Item.Properties.push_back(StringProperty(name, Value.*member));
}

template <typename T>
void GetMembers(const TStreamItem& Item, T& Value, std::span<const TMember<T>> Members) {
    for (const auto& [name, member] : Members)
        if (const TStreamProperty* p = Item.Find(QLatin1String(name)))
            Value.*member = p->Kind == TStreamProperty::pkBoolean
                                ? (p->Boolean ? QStringLiteral("True") : QStringLiteral("False"))
                                : p->Text;
}

const TMember<TClipFieldInfo> kFieldMembers[] = {
    {"FieldName", &TClipFieldInfo::FieldName},
    {"DeclaredType", &TClipFieldInfo::DeclaredType},
    {"FieldType", &TClipFieldInfo::FieldType},
    {"Size", &TClipFieldInfo::Size},
    {"Precision", &TClipFieldInfo::Precision},
    {"NotNull", &TClipFieldInfo::NotNull},
    {"NotNullOnConflict", &TClipFieldInfo::NotNullOnConflict},
    {"DefaultValue", &TClipFieldInfo::DefaultValue},
    {"Collate", &TClipFieldInfo::Collate},
    {"GeneratedExpression", &TClipFieldInfo::GeneratedExpression},
    {"GeneratedStored", &TClipFieldInfo::GeneratedStored},
};
const TMember<TClipIndexInfo> kIndexMembers[] = {
    {"IndexName", &TClipIndexInfo::IndexName},
    {"IndexType", &TClipIndexInfo::IndexType},
    {"ConflictClause", &TClipIndexInfo::ConflictClause},
};
const TMember<TClipIndexInfo> kIndexTailMembers[] = {
    {"WhereClause", &TClipIndexInfo::WhereClause},
};
const TMember<TClipIndexFieldInfo> kIndexFieldMembers[] = {
    {"FieldName", &TClipIndexFieldInfo::FieldName},
    {"Collate", &TClipIndexFieldInfo::Collate},
    {"SortOrder", &TClipIndexFieldInfo::SortOrder},
    {"Autoincrement", &TClipIndexFieldInfo::Autoincrement},
};
const TMember<TClipUniqueConstraintInfo> kUniqueMembers[] = {
    {"ConstraintName", &TClipUniqueConstraintInfo::ConstraintName},
    {"Fields", &TClipUniqueConstraintInfo::Fields},
    {"ConflictClause", &TClipUniqueConstraintInfo::ConflictClause},
};
const TMember<TClipCheckConstraintInfo> kCheckMembers[] = {
    {"ConstraintName", &TClipCheckConstraintInfo::ConstraintName},
    {"Expression", &TClipCheckConstraintInfo::Expression},
};
const TMember<TClipForeignKeyInfo> kForeignKeyMembers[] = {
    {"ConstraintName", &TClipForeignKeyInfo::ConstraintName},
    {"ParentTableName", &TClipForeignKeyInfo::ParentTableName},
    {"ChildKey", &TClipForeignKeyInfo::ChildKey},
    {"ParentKey", &TClipForeignKeyInfo::ParentKey},
    {"OnDeleteAction", &TClipForeignKeyInfo::OnDeleteAction},
    {"OnUpdateAction", &TClipForeignKeyInfo::OnUpdateAction},
    {"MatchName", &TClipForeignKeyInfo::MatchName},
    {"Deferrable", &TClipForeignKeyInfo::Deferrable},
    {"Initially", &TClipForeignKeyInfo::Initially},
};
const TMember<TClipTriggerInfo> kTriggerMembers[] = {
    {"TriggerName", &TClipTriggerInfo::TriggerName},
    {"SQL", &TClipTriggerInfo::SQL},
};

// An object whose one property is the collection Items of plain items.
template <typename TItem>
QByteArray ItemsToBytes(const char* ClassName, const std::vector<TItem>& Items,
                        std::span<const TMember<TItem>> Members) {
    TStreamObject object;
    object.ClassName = QLatin1String(ClassName);
    TStreamProperty items;
    items.Name = QStringLiteral("Items");
    items.Kind = TStreamProperty::pkCollection;
    for (const TItem& value : Items) {
        TStreamItem item;
        PutMembers(item, value, Members);
        items.Items.push_back(std::move(item));
    }
    object.Properties.push_back(std::move(items));
    return WriteObjectText(object);
}

// The object of the class, or false for no bytes or another class.
bool ReadClass(const QByteArray& Bytes, const char* ClassName, TStreamObject& Object) {
    if (Bytes.isEmpty()) return false;
    Object = ReadObjectText(Bytes);
    return Object.ClassName.compare(QLatin1String(ClassName), Qt::CaseInsensitive) == 0;
}

const std::vector<TStreamItem>& CollectionItems(const TStreamObject& Object) {
    static const std::vector<TStreamItem> none;
    const TStreamProperty* p = Object.Find(QStringLiteral("Items"));
    return p && p->Kind == TStreamProperty::pkCollection ? p->Items : none;
}

template <typename TItem>
bool BytesToItems(const QByteArray& Bytes, const char* ClassName, std::vector<TItem>& Items,
                  std::span<const TMember<TItem>> Members) {
    TStreamObject object;
    if (!ReadClass(Bytes, ClassName, object)) return false;
    Items.clear();
    for (const TStreamItem& item : CollectionItems(object)) {
        TItem value;
        GetMembers(item, value, Members);
        Items.push_back(std::move(value));
    }
    return true;
}

QString BoolText(bool Value) {
    return Value ? QStringLiteral("True") : QStringLiteral("False");
}

bool TextBool(const QString& Text) {
    return Text.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0 || Text == u"1";
}

}  // namespace

const TStreamProperty* TStreamItem::Find(const QString& Name) const {
    for (const TStreamProperty& p : Properties)
        if (p.Name.compare(Name, Qt::CaseInsensitive) == 0) return &p;
    return nullptr;
}

const TStreamProperty* TStreamObject::Find(const QString& Name) const {
    for (const TStreamProperty& p : Properties)
        if (p.Name.compare(Name, Qt::CaseInsensitive) == 0) return &p;
    return nullptr;
}

QByteArray WriteObjectText(const TStreamObject& Object) {
    QByteArray out;
    WriteLine(out, 0, "object " + Object.ClassName.toLatin1());
    WriteProperties(out, Object.Properties, 2);
    WriteLine(out, 0, "end");
    return out;
}

TStreamObject ReadObjectText(const QByteArray& Bytes) {
    return TObjectTextReader(Bytes).ReadObject();
}

QByteArray ComponentToBytes(const TClipFields& Clip) {
    return ItemsToBytes<TClipFieldInfo>("TClipFields", Clip.Items, kFieldMembers);
}

QByteArray ComponentToBytes(const TClipIndexes& Clip) {
    TStreamObject object;
    object.ClassName = QStringLiteral("TClipIndexes");
    TStreamProperty items;
    items.Name = QStringLiteral("Items");
    items.Kind = TStreamProperty::pkCollection;
    for (const TClipIndexInfo& index : Clip.Items) {
        TStreamItem item;
        PutMembers<TClipIndexInfo>(item, index, kIndexMembers);
        TStreamProperty fields;
        fields.Name = QStringLiteral("Items");
        fields.Kind = TStreamProperty::pkCollection;
        for (const TClipIndexFieldInfo& field : index.Items) {
            TStreamItem fieldItem;
            PutMembers<TClipIndexFieldInfo>(fieldItem, field, kIndexFieldMembers);
            fields.Items.push_back(std::move(fieldItem));
        }
        item.Properties.push_back(std::move(fields));
        PutMembers<TClipIndexInfo>(item, index, kIndexTailMembers);
        items.Items.push_back(std::move(item));
    }
    object.Properties.push_back(std::move(items));
    return WriteObjectText(object);
}

QByteArray ComponentToBytes(const TClipUniqueConstraints& Clip) {
    return ItemsToBytes<TClipUniqueConstraintInfo>("TClipUniqueConstraints", Clip.Items, kUniqueMembers);
}

QByteArray ComponentToBytes(const TClipCheckConstraints& Clip) {
    return ItemsToBytes<TClipCheckConstraintInfo>("TClipCheckConstraints", Clip.Items, kCheckMembers);
}

QByteArray ComponentToBytes(const TClipForeignKeys& Clip) {
    return ItemsToBytes<TClipForeignKeyInfo>("TClipForeignKeys", Clip.Items, kForeignKeyMembers);
}

QByteArray ComponentToBytes(const TClipTriggers& Clip) {
    TStreamObject object;
    object.ClassName = QStringLiteral("TClipTriggers");
    TStreamProperty items;
    items.Name = QStringLiteral("Items");
    items.Kind = TStreamProperty::pkCollection;
    for (const TClipTriggerInfo& trigger : Clip.Items) {
        TStreamItem item;
        PutMembers<TClipTriggerInfo>(item, trigger, kTriggerMembers);
        TStreamProperty temporary;
        temporary.Name = QStringLiteral("IsTemporary");
        temporary.Kind = TStreamProperty::pkBoolean;
        temporary.Boolean = trigger.IsTemporary;
        item.Properties.push_back(std::move(temporary));
        items.Items.push_back(std::move(item));
    }
    object.Properties.push_back(std::move(items));
    return WriteObjectText(object);
}

QByteArray ComponentToBytes(const TClipObjects& Clip) {
    TStreamObject object;
    object.ClassName = QStringLiteral("TClipObjects");
    object.Properties.push_back(StringProperty("DatabaseAlias", Clip.DatabaseAlias));
    TStreamProperty items;
    items.Name = QStringLiteral("Items");
    items.Kind = TStreamProperty::pkStrings;
    items.Strings = Clip.Items;
    object.Properties.push_back(std::move(items));
    return WriteObjectText(object);
}

bool BytesToComponent(const QByteArray& Bytes, TClipFields& Clip) {
    return BytesToItems<TClipFieldInfo>(Bytes, "TClipFields", Clip.Items, kFieldMembers);
}

bool BytesToComponent(const QByteArray& Bytes, TClipIndexes& Clip) {
    TStreamObject object;
    if (!ReadClass(Bytes, "TClipIndexes", object)) return false;
    Clip.Items.clear();
    for (const TStreamItem& item : CollectionItems(object)) {
        TClipIndexInfo index;
        GetMembers<TClipIndexInfo>(item, index, kIndexMembers);
        GetMembers<TClipIndexInfo>(item, index, kIndexTailMembers);
        if (const TStreamProperty* fields = item.Find(QStringLiteral("Items"));
            fields && fields->Kind == TStreamProperty::pkCollection)
            for (const TStreamItem& fieldItem : fields->Items) {
                TClipIndexFieldInfo field;
                GetMembers<TClipIndexFieldInfo>(fieldItem, field, kIndexFieldMembers);
                index.Items.push_back(std::move(field));
            }
        Clip.Items.push_back(std::move(index));
    }
    return true;
}

bool BytesToComponent(const QByteArray& Bytes, TClipUniqueConstraints& Clip) {
    return BytesToItems<TClipUniqueConstraintInfo>(Bytes, "TClipUniqueConstraints", Clip.Items,
                                                   kUniqueMembers);
}

bool BytesToComponent(const QByteArray& Bytes, TClipCheckConstraints& Clip) {
    return BytesToItems<TClipCheckConstraintInfo>(Bytes, "TClipCheckConstraints", Clip.Items, kCheckMembers);
}

bool BytesToComponent(const QByteArray& Bytes, TClipForeignKeys& Clip) {
    return BytesToItems<TClipForeignKeyInfo>(Bytes, "TClipForeignKeys", Clip.Items, kForeignKeyMembers);
}

bool BytesToComponent(const QByteArray& Bytes, TClipTriggers& Clip) {
    TStreamObject object;
    if (!ReadClass(Bytes, "TClipTriggers", object)) return false;
    Clip.Items.clear();
    for (const TStreamItem& item : CollectionItems(object)) {
        TClipTriggerInfo trigger;
        GetMembers<TClipTriggerInfo>(item, trigger, kTriggerMembers);
        if (const TStreamProperty* p = item.Find(QStringLiteral("IsTemporary")))
            trigger.IsTemporary = p->Kind == TStreamProperty::pkBoolean ? p->Boolean : TextBool(p->Text);
        Clip.Items.push_back(std::move(trigger));
    }
    return true;
}

bool BytesToComponent(const QByteArray& Bytes, TClipObjects& Clip) {
    TStreamObject object;
    if (!ReadClass(Bytes, "TClipObjects", object)) return false;
    Clip = TClipObjects{};
    if (const TStreamProperty* p = object.Find(QStringLiteral("DatabaseAlias"))) Clip.DatabaseAlias = p->Text;
    if (const TStreamProperty* p = object.Find(QStringLiteral("Items"));
        p && p->Kind == TStreamProperty::pkStrings)
        Clip.Items = p->Strings;
    return true;
}

// --- design rows -------------------------------------------------------------

TClipFields ClipFromFields(const std::vector<TDesignField>& Fields) {
    TClipFields clip;
    for (const TDesignField& f : Fields)
        clip.Items.push_back({f.Name, f.DeclaredType, f.Type, f.Size, f.Precision, BoolText(f.NotNull),
                              f.NotNullOnConflict, f.DefaultValue, f.Collate, f.GeneratedExpression,
                              f.GeneratedStored ? QStringLiteral("True") : QString()});
    return clip;
}

std::vector<TDesignField> FieldsFromClip(const TClipFields& Clip) {
    std::vector<TDesignField> fields;
    for (const TClipFieldInfo& c : Clip.Items) {
        TDesignField f;
        f.Name = c.FieldName;
        f.DeclaredType = c.DeclaredType;
        f.Type = c.FieldType;
        f.Size = c.Size;
        f.Precision = c.Precision;
        f.NotNull = TextBool(c.NotNull);
        f.NotNullOnConflict = c.NotNullOnConflict;
        f.DefaultValue = c.DefaultValue;
        f.Collate = c.Collate;
        f.GeneratedExpression = c.GeneratedExpression;
        f.GeneratedStored = TextBool(c.GeneratedStored);
        fields.push_back(std::move(f));
    }
    return fields;
}

TClipIndexes ClipFromIndexes(const std::vector<TDesignIndex>& Indexes) {
    TClipIndexes clip;
    for (const TDesignIndex& i : Indexes) {
        TClipIndexInfo c{i.Name, i.Type, i.OnConflict, {}, i.WhereClause};
        for (const TDesignIndexField& f : i.Fields)
            c.Items.push_back({f.FieldName, f.Collate, f.SortOrder, BoolText(f.Autoincrement)});
        clip.Items.push_back(std::move(c));
    }
    return clip;
}

std::vector<TDesignIndex> IndexesFromClip(const TClipIndexes& Clip) {
    std::vector<TDesignIndex> indexes;
    for (const TClipIndexInfo& c : Clip.Items) {
        TDesignIndex i;
        i.Name = c.IndexName;
        i.Type = c.IndexType;
        i.OnConflict = c.ConflictClause;
        i.WhereClause = c.WhereClause;
        for (const TClipIndexFieldInfo& f : c.Items)
            i.Fields.push_back({f.FieldName, f.Collate, f.SortOrder, TextBool(f.Autoincrement)});
        indexes.push_back(std::move(i));
    }
    return indexes;
}

TClipUniqueConstraints ClipFromUniqueConstraints(const std::vector<TDesignUniqueConstraint>& Constraints) {
    TClipUniqueConstraints clip;
    for (const TDesignUniqueConstraint& u : Constraints)
        clip.Items.push_back({u.Name, u.Fields, u.OnConflict});
    return clip;
}

std::vector<TDesignUniqueConstraint> UniqueConstraintsFromClip(const TClipUniqueConstraints& Clip) {
    std::vector<TDesignUniqueConstraint> constraints;
    for (const TClipUniqueConstraintInfo& c : Clip.Items) {
        TDesignUniqueConstraint u;
        u.Name = c.ConstraintName;
        u.Fields = c.Fields;
        u.OnConflict = c.ConflictClause;
        constraints.push_back(std::move(u));
    }
    return constraints;
}

TClipCheckConstraints ClipFromCheckConstraints(const std::vector<TDesignCheckConstraint>& Constraints) {
    TClipCheckConstraints clip;
    for (const TDesignCheckConstraint& c : Constraints) clip.Items.push_back({c.Name, c.Expression});
    return clip;
}

std::vector<TDesignCheckConstraint> CheckConstraintsFromClip(const TClipCheckConstraints& Clip) {
    std::vector<TDesignCheckConstraint> constraints;
    for (const TClipCheckConstraintInfo& c : Clip.Items) {
        TDesignCheckConstraint k;
        k.Name = c.ConstraintName;
        k.Expression = c.Expression;
        constraints.push_back(std::move(k));
    }
    return constraints;
}

TClipForeignKeys ClipFromForeignKeys(const std::vector<TDesignForeignKey>& ForeignKeys) {
    TClipForeignKeys clip;
    for (const TDesignForeignKey& k : ForeignKeys)
        clip.Items.push_back({k.Name, k.ParentTable, k.ChildKey, k.ParentKey, k.OnDelete, k.OnUpdate, k.Match,
                              k.Deferrable, k.Initially});
    return clip;
}

std::vector<TDesignForeignKey> ForeignKeysFromClip(const TClipForeignKeys& Clip) {
    std::vector<TDesignForeignKey> keys;
    for (const TClipForeignKeyInfo& c : Clip.Items) {
        TDesignForeignKey k;
        k.Name = c.ConstraintName;
        k.ParentTable = c.ParentTableName;
        k.ChildKey = c.ChildKey;
        k.ParentKey = c.ParentKey;
        k.OnDelete = c.OnDeleteAction;
        k.OnUpdate = c.OnUpdateAction;
        k.Match = c.MatchName;
        k.Deferrable = c.Deferrable;
        k.Initially = c.Initially;
        keys.push_back(std::move(k));
    }
    return keys;
}

TClipTriggers ClipFromTriggers(const std::vector<TDesignTrigger>& Triggers) {
    TClipTriggers clip;
    for (const TDesignTrigger& t : Triggers) clip.Items.push_back({t.Name, t.SQL, t.IsTemporary});
    return clip;
}

std::vector<TDesignTrigger> TriggersFromClip(const TClipTriggers& Clip) {
    std::vector<TDesignTrigger> triggers;
    for (const TClipTriggerInfo& c : Clip.Items) {
        TDesignTrigger t;
        t.Name = c.TriggerName;
        t.SQL = c.SQL;
        t.IsTemporary = c.IsTemporary;
        triggers.push_back(std::move(t));
    }
    return triggers;
}

}  // namespace brindle
