#include "DLFields.h"

#include "DataSet.h"
#include "engine/Exceptions.h"

namespace brindle {

TFieldDef& TFieldDefs::Add(const QString& Name, TFieldType DataType, int Size, bool Required) {
    auto def = std::make_unique<TFieldDef>();
    def->Name = Name;
    def->DataType = DataType;
    def->Size = Size;
    def->Required = Required;
    FItems.push_back(std::move(def));
    return *FItems.back();
}

int TFieldDefs::IndexOf(const QString& Name) const {
    for (size_t i = 0; i < FItems.size(); ++i)
        if (FItems[i]->Name.compare(Name, Qt::CaseInsensitive) == 0) return static_cast<int>(i);
    return -1;
}

QVariant TField::Value() const {
    return FDataSet->GetFieldValue(*this);
}

void TField::SetValue(const QVariant& Value) {
    FDataSet->SetFieldValue(*this, Value);
}

QVariant TField::OldValue() const {
    return FDataSet->GetOldFieldValue(*this);
}

TField& TFields::Add(std::unique_ptr<TField> Field) {
    FItems.push_back(std::move(Field));
    return *FItems.back();
}

TField* TFields::FindField(const QString& FieldName) const {
    for (const auto& f : FItems)
        if (f->FieldName().compare(FieldName, Qt::CaseInsensitive) == 0) return f.get();
    return nullptr;
}

TField& TFields::FieldByName(const QString& FieldName) const {
    TField* f = FindField(FieldName);
    if (!f) throw ECustomException(QStringLiteral("Field '%1' not found").arg(FieldName));
    return *f;
}

}  // namespace brindle
