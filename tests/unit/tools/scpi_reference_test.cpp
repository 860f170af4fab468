#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scpi-reference/descriptions.h"
#include "scpi-reference/header_forms.h"
#include "scpi-reference/reference.h"

using namespace scpi_reference;
using testing::HasSubstr;

namespace {

scpi_result_t forwarded(scpi_t*)
{
    return SCPI_RES_OK;
}

scpi_result_t local(scpi_t*)
{
    return SCPI_RES_OK;
}

constexpr scpi_command_t kRows[] = {
    {"[:SOURce]:FREQuency", forwarded, 0},
    {"[:SOURce]:FREQuency?", forwarded, 0},
    {":SYSTem:FAN:MODE", local, 0},
    {"*IDN?", local, 0},
    {nullptr, nullptr, 0},
};

const std::string kFrequency = R"(@ [:SOURce]:FREQuency
what     The frequency
  of the carrier.
set      <frequency>
query    [ MIN | MAX ]
param    <frequency>  Hz, from 8 kHz
reply    In hertz.
error    -222 outside the range
example
> :FREQ 1GHz;:FREQ?
< 1000000000;+OK
)";

const std::string kFan = R"(@ :SYSTem:FAN:MODE
what     The fans.
set
sample
> :SYST:FAN:MODE AUTO
< +OK
)";

const std::string kIdn = R"(@ *IDN
what     The identity.
query
reply    Four fields.
example
> *IDN?
< Halde,X,1,2;+OK
)";

const std::string kBegin = "# Title\n\n== First section\n\nIts text.\n\n";

std::string rendered(const std::string& text)
{
    return render(parse_descriptions(text), {kRows, forwarded});
}

/** The error message; empty for none. */
std::string complaint(const std::string& text)
{
    try {
        rendered(text);
        return {};
    } catch (const Complaint& complaint) {
        return complaint.what();
    }
}

std::string without(const std::string& text, const std::string& part)
{
    std::string rest = text;
    return rest.erase(rest.find(part), part.size());
}

} // namespace

TEST(HeaderForms, ShortestOmitsTheOptionalNodes)
{
    EXPECT_EQ(shortest_form("[:SOURce]:CORRection:FLATness[:STATe]?"), ":CORR:FLAT?");
    EXPECT_EQ(shortest_form("*IDN?"), "*IDN?");
}

TEST(HeaderForms, LongestHasEveryNode)
{
    EXPECT_EQ(longest_form("[:SOURce]:CORRection:FLATness[:STATe]?"), ":SOURCE:CORRECTION:FLATNESS:STATE?");
}

TEST(ReferenceDocument, CombinesTableAndDescriptions)
{
    EXPECT_EQ(rendered(kBegin + kFrequency + "== Second-rate things\n\n" + kFan + kIdn), R"(# Title

## All commands

Who answers the set form and the query of each:

| command | set | query |
|---|---|---|
| **[First section](#first-section)** | | |
| [`[:SOURce]:FREQuency`](#sourcefrequency) | module | module |
| **[Second-rate things](#second-rate-things)** | | |
| [`:SYSTem:FAN:MODE`](#systemfanmode) | controller |  |
| [`*IDN`](#idn) |  | controller |

## First section

Its text.


### `[:SOURce]:FREQuency`

The frequency of the carrier.

| form | shortest | longest | answered by |
|---|---|---|---|
| set | `:FREQ <frequency>` | `:SOURCE:FREQUENCY <frequency>` | module |
| query | `:FREQ? [ MIN \| MAX ]` | `:SOURCE:FREQUENCY? [ MIN \| MAX ]` | module |

- `<frequency>`: Hz, from 8 kHz
- Reply: In hertz.
- Error -222, "Data out of range": outside the range

```scpi
> :FREQ 1GHz;:FREQ?
< 1000000000;+OK
```

## Second-rate things


### `:SYSTem:FAN:MODE`

The fans.

| form | shortest | longest | answered by |
|---|---|---|---|
| set | `:SYST:FAN:MODE` | `:SYSTEM:FAN:MODE` | controller |


```text
> :SYST:FAN:MODE AUTO
< +OK
```

### `*IDN`

The identity.

| form | shortest | longest | answered by |
|---|---|---|---|
| query | `*IDN?` | `*IDN?` | controller |

- Reply: Four fields.

```scpi
> *IDN?
< Halde,X,1,2;+OK
```
)");
}

TEST(ReferenceDocument, CommandsAreJsonWithoutMarkdown)
{
    const std::string fan = "@ :SYSTem:FAN:MODE\nwhat     The `fans`.\nwhat     \"Both\".\nset      <mode>\n"
                            "param    <mode>  `AUTO` or `FIXED`.\nexample\n> :SYST:FAN:MODE AUTO\n< +OK\n";
    EXPECT_EQ(render_json(parse_descriptions(kBegin + kFrequency + fan + kIdn), {kRows, forwarded}),
              R"({"commands":[
{"header":"[:SOURce]:FREQuency","set":true,"query":true,"text":"The frequency of the carrier.","parameters":"<frequency>. <frequency>: Hz, from 8 kHz. Reply: In hertz."},
{"header":":SYSTem:FAN:MODE","set":true,"query":false,"text":"The fans. \"Both\".","parameters":"<mode>. <mode>: AUTO or FIXED."},
{"header":"*IDN","set":false,"query":true,"text":"The identity.","parameters":"Reply: Four fields."}
]}
)");
    EXPECT_THROW(render_json(parse_descriptions(kBegin + kFan + kIdn), {kRows, forwarded}), Complaint);
}

TEST(ReferenceDocument, ARowWithoutADescriptionIsNamed)
{
    EXPECT_EQ(complaint(kBegin + kFrequency + kIdn), "the row :SYSTem:FAN:MODE is not described");
    EXPECT_EQ(complaint(kBegin + kFrequency + kFan), "the row *IDN? is not described");
    const std::string set_only =
        without(without(kFrequency, "query    [ MIN | MAX ]\n"), "reply    In hertz.\n");
    EXPECT_EQ(complaint(kBegin + set_only + kFan + kIdn),
              "line 7: the row [:SOURce]:FREQuency? is not described: [:SOURce]:FREQuency has no \"query\"");
    const std::string query_only =
        without(without(kFrequency, "set      <frequency>\n"), "param    <frequency>  Hz, from 8 kHz\n");
    EXPECT_EQ(complaint(kBegin + query_only + kFan + kIdn),
              "line 7: the row [:SOURce]:FREQuency is not described: [:SOURce]:FREQuency has no \"set\"");
}

TEST(ReferenceDocument, ADescriptionWithoutARowIsNamed)
{
    const std::string fan_query = kFan + "query\nreply    A word.\n";
    EXPECT_EQ(complaint(kBegin + kFrequency + fan_query + kIdn),
              "line 18: :SYSTem:FAN:MODE? is not in the command table");
    const std::string gone = "@ :OUTPut\nwhat     Gone.\nset\nexample\n> :OUTP\n< +OK\n";
    EXPECT_EQ(complaint(kBegin + kFrequency + kFan + kIdn + gone),
              "line 31: :OUTPut is not in the command table");
    EXPECT_EQ(complaint(kBegin + kFrequency + kFan + kIdn + kFan),
              "line 31: :SYSTem:FAN:MODE is described twice");
}

TEST(ReferenceDescriptions, AnIncompleteOneIsNamed)
{
    EXPECT_EQ(complaint(kBegin + without(kIdn, "what     The identity.\n")), "line 7: *IDN has no \"what\"");
    EXPECT_EQ(complaint(kBegin + without(kIdn, "reply    Four fields.\n")),
              "line 7: *IDN has no \"reply\" for its query");
    EXPECT_EQ(complaint(kBegin + without(kIdn, "> *IDN?\n< Halde,X,1,2;+OK\n")),
              "line 7: *IDN has no example");
    EXPECT_EQ(complaint(kBegin + without(kFrequency, "param    <frequency>  Hz, from 8 kHz\n")),
              "line 7: [:SOURce]:FREQuency has no \"param\" for <frequency>");
    EXPECT_EQ(complaint(kBegin + kFan + "param    <mode>  a word\n"),
              "line 7: :SYSTem:FAN:MODE has no form with <mode>");
}

TEST(ReferenceDescriptions, ALineThatCannotBeReadIsNamed)
{
    EXPECT_EQ(complaint("@ *IDN?\n"), "line 1: a command before the first section");
    EXPECT_EQ(complaint(kBegin + "@ *IDN\nreplay   A word.\n"), "line 8: there is no field \"replay\"");
    EXPECT_EQ(complaint(kBegin + "@ *IDN\n  goes on\n"), "line 8: there is no field to continue");
    EXPECT_EQ(complaint(kBegin + "@ *IDN\n> *IDN?\n"),
              "line 8: a dialogue begins with \"example\" or \"sample\"");
    EXPECT_EQ(complaint(kBegin + "@ *IDN\nerror    too big\n"), "line 8: an error begins with its code");
    EXPECT_EQ(complaint(kBegin + "@ *IDN\nparam    mode  word\n"),
              "line 8: a parameter's name must be in <>");
}

TEST(ReferenceDescriptions, CommentsAreSkipped)
{
    const Descriptions read = parse_descriptions("// no word of this\nShown.\n== A\n// nor of this\n" + kIdn);
    EXPECT_EQ(read.beginning, "Shown.\n");
    EXPECT_EQ(read.sections.at(0).text, "");
    EXPECT_EQ(read.sections.at(0).commands.size(), 1u);
}

TEST(ReferenceDifference, NamesTheLineAndTheCommand)
{
    const std::string wanted = "# T\n\n### `*IDN`\n\nThe identity.\n";
    EXPECT_EQ(difference(wanted, wanted), "");
    EXPECT_EQ(difference("# T\n\n### `*IDN`\n\nAn identity.\n", wanted),
              "line 5, in `*IDN`:\n  is        An identity.\n  should be The identity.");
    EXPECT_EQ(difference("# T\n\n### `*IDN`\n", wanted),
              "line 4, in `*IDN`:\n  is        (the end)\n  should be ");
    EXPECT_EQ(difference(wanted + "more\n", wanted),
              "line 6, in `*IDN`:\n  is        more\n  should be (the end)");
    EXPECT_THAT(difference("", wanted), HasSubstr("line 1, in T:"));
}
