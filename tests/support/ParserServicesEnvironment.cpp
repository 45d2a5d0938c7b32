// The engine asks the schema layer's parser what a statement is; the program
// installs those answers at its start, and so does every suite that adds
// this file to its sources.
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

namespace {

class ParserServices : public ::testing::Environment {
public:
    void SetUp() override { brindle::InstallSQLParserServices(); }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new ParserServices);

}  // namespace
