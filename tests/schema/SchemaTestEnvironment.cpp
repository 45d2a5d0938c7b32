// Every schema test runs with the engine's SQL questions answered by the
// parser, as the program does from its start.
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

namespace {

class ParserServices : public ::testing::Environment {
public:
    void SetUp() override { brindle::InstallSQLParserServices(); }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new ParserServices);

}  // namespace
