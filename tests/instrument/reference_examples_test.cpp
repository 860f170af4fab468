// The dialogues of the SCPI reference, run against the instrument.
#include <gtest/gtest.h>

#include "dialogue.h"
#include "instrument.h"

using namespace orvan_test;

TEST(ScpiReference, ShowsRepliesThatTheInstrumentSends)
{
    ORVAN_NEEDS_SANDBOX();
    const Instrument instrument;
    Client client = instrument.client();
    const auto examples = read_examples(ORVAN_DOCS_DIR "/scpi-reference.md");
    EXPECT_GT(examples.size(), 130u);
    for (const Exchange& example : examples) {
        EXPECT_EQ(client.ask(example.line), example.reply + "\r\n") << example.line;
    }
}
