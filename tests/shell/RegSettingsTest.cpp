// Packed text in the settings store and the features a user can hide.
#include "TempDir.h"

#include "shell/RegSettings.h"

#include <gtest/gtest.h>
#include <QSettings>

using namespace brindle;

TEST(RegSettings, PackedTextKeepsLinesAndItems) {
    EXPECT_EQ(EncodeString(QString()), QString());
    EXPECT_EQ(EncodeString(QStringLiteral("\n")), QString());  // one empty line
    EXPECT_EQ(EncodeString(QStringLiteral("select 1\r\nfrom t\n")), QStringLiteral("select 1\x01"
                                                                                   "from t"));
    EXPECT_EQ(DecodeString(QStringLiteral("select 1\x01"
                                          "from t")),
              QStringLiteral("select 1\nfrom t"));
    // Blank lines inside survive, and so do quotes and blanks.
    const QString text = QStringLiteral("a\n\n  'b' \"c\"");
    EXPECT_EQ(DecodeString(EncodeString(text)), text);

    // A history of several multi-line texts in one value.
    const QStringList history{QStringLiteral("select *\nfrom t"), QStringLiteral("x, y"), QStringLiteral("")};
    const QString packed = EncodeStrings(history);
    EXPECT_FALSE(packed.contains(u'\n'));
    EXPECT_EQ(DecodeStrings(packed), history);
    EXPECT_TRUE(DecodeStrings(QString()).isEmpty());
}

TEST(RegSettings, FeaturesDefaultOnAndRoundTrip) {
    TFeatureList features;
    features.SetDefaultFeatures();
    EXPECT_EQ(features.Count(), 12);
    QStringList categories;
    features.GetCategories(categories);
    EXPECT_EQ(categories, QStringList({"Show/Hide tabs", "Show/Hide features"}));
    ASSERT_NE(features.FindItem(QStringLiteral("show/hide FEATURES"), QStringLiteral("find/replace")),
              nullptr);
    EXPECT_EQ(features.FindItem(QStringLiteral("Show/Hide tabs"), QStringLiteral("Nothing")), nullptr);
    EXPECT_TRUE(features.GetItems(QStringLiteral("Show/Hide tabs"), QStringLiteral("New")).Enabled);  // added
    features.GetItems(QStringLiteral("Show/Hide tabs"), QStringLiteral("DDL")).Enabled = false;

    test::TempDir dir;
    {
        QSettings s(dir.file(QStringLiteral("f.ini")), QSettings::IniFormat);
        features.Save(s);
    }
    QSettings s(dir.file(QStringLiteral("f.ini")), QSettings::IniFormat);
    EXPECT_EQ(s.value(QStringLiteral("Features/Show/Hide tabs/DDL")).toInt(), 0);
    TFeatureList loaded;
    loaded.SetDefaultFeatures();
    loaded.Load(s);
    EXPECT_FALSE(loaded.GetItems(QStringLiteral("Show/Hide tabs"), QStringLiteral("DDL")).Enabled);
    EXPECT_TRUE(loaded.GetItems(QStringLiteral("Show/Hide tabs"), QStringLiteral("SQL")).Enabled);
}

TEST(RegSettings, StartupOptionsFromTheFileBesideTheProgram) {
    test::TempDir dir;
    const TStartupOptions none = ReadStartupOptions(dir.file(QStringLiteral("absent.ini")));
    EXPECT_FALSE(none.Log);
    EXPECT_FALSE(none.Thumbnails);
    EXPECT_EQ(none.DataBufferSize, 512);
    const QString small = dir.write(QStringLiteral("small.ini"), "[Settings]\nLog=1\nDataBufferSize=5\n");
    EXPECT_EQ(ReadStartupOptions(small).DataBufferSize, 128);
    EXPECT_TRUE(ReadStartupOptions(small).Log);
    const QString broken =
        dir.write(QStringLiteral("broken.ini"), "\x01\x02[[[Settings\nDataBufferSize=lots\n");
    EXPECT_EQ(ReadStartupOptions(broken).DataBufferSize, 512);
}
