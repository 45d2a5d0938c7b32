#include "EngineTestSupport.h"
#include "engine/DLTypeMapping.h"

#include "engine/Assert.h"

#include <gtest/gtest.h>

namespace brindle {
namespace {

TEST(TypeMappingTest, DefaultTableIsSortedAndFirstHitsFollowTheOrder) {
    const TDLTypeMappings& t = DefaultTypeMappings();
    QStringList names;
    t.GetDeclaredTypes(names);
    ASSERT_EQ(names.size(), 47);
    QStringList sorted = names;
    sorted.sort(Qt::CaseInsensitive);
    EXPECT_EQ(names, sorted);
    EXPECT_EQ(t.FindDataType(ftLargeint)->DeclaredType(), QStringLiteral("BIGINT"));
    EXPECT_EQ(t.FindDataType(ftWideMemo)->DeclaredType(), QStringLiteral("CLOB"));
    EXPECT_EQ(t.FindDeclaredType(QStringLiteral("double precision"))->DataType(), ftFloat);
    EXPECT_EQ(t.GetDataTypes(), (TDataTypes{ftLargeint, ftFloat, ftGuid, ftWideString, ftWideMemo, ftCurrency,
                                            ftBlob, ftDate, ftTime, ftDateTime, ftBoolean, ftGraphic}));
}

TEST(TypeMappingTest, DeclaredTypeToFieldType) {
    struct Case {
        const char* Declared;
        TFieldType Initial, Expected;
        int Size, Precision;
    } cases[] = {
        {"VARCHAR(50)", ftUnknown, ftWideString, 50, 0},
        {" numeric ( 10 , 2 ) ", ftUnknown, ftFloat, 10, 2},
        {"DOUBLE PRECISION", ftUnknown, ftFloat, 0, 0},
        {"text", ftUnknown, ftWideString, 0, 0},  // short text, not a memo
        {"CLOB", ftUnknown, ftWideMemo, 0, 0},
        {"BIGCLOB", ftUnknown, ftWideString, 0, 0},  // the fallback never gives a memo
        {"UNSIGNED BIG INT", ftUnknown, ftLargeint, 0, 0},
        {"FLOATING POINT", ftUnknown, ftLargeint, 0, 0},  // "INT" of POINT wins over "FLOA"
        {"CHARACTER(20)", ftUnknown, ftWideString, 20, 0},
        {"BLOBBY", ftUnknown, ftBlob, 0, 0},
        {"REALLY", ftUnknown, ftFloat, 0, 0},
        {"DOUBLY", ftUnknown, ftFloat, 0, 0},
        {"timestamp", ftUnknown, ftDateTime, 0, 0},
        {"FOO(3)", ftBytes, ftBytes, 3, 0},  // unknown names keep the caller's value
        {"", ftVarBytes, ftVarBytes, 0, 0},
    };
    for (const Case& c : cases) {
        TFieldType type = c.Initial;
        int size = -1, precision = -1;
        DefaultTypeMappings().SQLStrToDataType(QString::fromLatin1(c.Declared), type, size, precision);
        EXPECT_EQ(type, c.Expected) << c.Declared;
        EXPECT_EQ(size, c.Size) << c.Declared;
        EXPECT_EQ(precision, c.Precision) << c.Declared;
    }
}

TEST(TypeMappingTest, SplitsAndRejectsSizeText) {
    QString name, size, precision;
    DefaultTypeMappings().SQLStrToDataType(QStringLiteral(" Numeric (10, 2)"), name, size, precision);
    EXPECT_EQ(name, QStringLiteral("Numeric"));
    EXPECT_EQ(size, QStringLiteral("10"));
    EXPECT_EQ(precision, QStringLiteral(" 2"));  // only the whole inner text is trimmed

    TFieldType type = ftUnknown;
    int n = 0, p = 0;
    for (const char* bad : {"VARCHAR(10) NOT", "VARCHAR(10", "A)B(1)"}) {
        try {
            DefaultTypeMappings().SQLStrToDataType(QString::fromLatin1(bad), type, n, p);
            ADD_FAILURE() << bad;
        } catch (const ECustomException& e) {
            EXPECT_EQ(e.message(), QStringLiteral("Error reading field size")) << bad;
        }
    }
    EXPECT_THROW(DefaultTypeMappings().SQLStrToDataType(QStringLiteral("VARCHAR(ten)"), type, n, p),
                 ECustomException);
}

TEST(TypeMappingTest, FieldTypeToDeclaredType) {
    const TDLTypeMappings& t = DefaultTypeMappings();
    EXPECT_EQ(t.DataTypeToSQLStr(ftMemo), QStringLiteral("CHAR"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftWideMemo), QStringLiteral("CHAR"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftAutoInc), QStringLiteral("INTEGER"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftGuid), QStringLiteral("GUID"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftString, 20, 0), QStringLiteral("CHAR(20)"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftFloat, 10, 2), QStringLiteral("FLOAT(10,2)"));
    EXPECT_EQ(t.DataTypeToSQLStr(ftFloat, 0, 2), QStringLiteral("FLOAT"));

    TDLTypeMappings custom;
    custom.AddTypeMapping(QStringLiteral("Number19"), ftLargeint);
    custom.AddTypeMapping(QStringLiteral("varchar2"), ftString);
    EXPECT_EQ(custom.DataTypeToSQLStr(ftInteger), QStringLiteral("NUMBER19"));
    EXPECT_EQ(custom.DataTypeToSQLStr(ftWideMemo), QStringLiteral("VARCHAR2"));
    EXPECT_EQ(custom.DataTypeToSQLStr(ftBlob), QStringLiteral("UNKNOWN"));
    EXPECT_TRUE(custom.SupportsDataType(ftMemo));
    EXPECT_FALSE(custom.SupportsDataType(ftWideMemo));
    EXPECT_FALSE(DefaultTypeMappings().SupportsDataType(ftMemo));
    EXPECT_TRUE(DefaultTypeMappings().SupportsDataType(ftWideMemo));
}

TEST(TypeMappingDeathTest, AddAssertsOnDuplicatesAndForeignTypes) {
    TDLTypeMappings t;
    t.AddTypeMapping(QStringLiteral("Int"), ftLargeint);
    EXPECT_THROW(t.AddTypeMapping(QStringLiteral("INT"), ftInteger), EAssertionFailure);
    EXPECT_THROW(t.AddTypeMapping(QStringLiteral("CURSOR"), ftCursor), EAssertionFailure);
}

TEST(TypeMappingTest, DatabaseMapsFieldsThroughItsOwnCopy) {
    auto db = test::openDatabase(QStringLiteral(":memory:"));
    db->Execute(QStringLiteral("create table t (a varchar(20), b NUMERIC(10,2), c clob, d, e widget)"));
    TFieldRecords fields;
    db->GetFields(QStringLiteral("t"), fields);
    ASSERT_EQ(fields.size(), 5u);
    EXPECT_EQ(fields[0].DataType, ftWideString);
    EXPECT_EQ(fields[0].Size, 20);
    EXPECT_EQ(fields[0].SQLType, QStringLiteral("varchar"));
    EXPECT_EQ(fields[1].DataType, ftFloat);
    EXPECT_EQ(fields[1].Precision, 2);
    EXPECT_EQ(fields[2].DataType, ftWideMemo);
    EXPECT_EQ(fields[3].DataType, ftUnknown);
    EXPECT_EQ(fields[4].DataType, ftUnknown);

    TDLTypeMappings custom;
    custom.AddTypeMapping(QStringLiteral("WIDGET"), ftBlob);
    db->SetTypeMappings(custom);
    fields.clear();
    db->GetFields(QStringLiteral("t"), fields);
    EXPECT_EQ(fields[0].DataType, ftUnknown);
    EXPECT_EQ(fields[4].DataType, ftBlob);
    EXPECT_EQ(db->DataTypeToSQLStr(ftBlob), QStringLiteral("WIDGET"));
    EXPECT_EQ(DefaultTypeMappings().Count(), 47);
}

}  // namespace
}  // namespace brindle
