// The built-in tags: counters, capture, unless, case, loops with their variables, else, break,
// continue and parameters, cycle, tablerow, comment; and the messages of tags that fail.

#include <gtest/gtest.h>

#include <thread>

#include "template/TagFor.h"
#include "template/TemplateTestSupport.h"

namespace drovel::templating {
namespace {

using namespace testing;
using Value = Token::Value;

TEST(Tags, CountersCaptureUnlessAndComment) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% increment n %}{% increment n %}{% increment n %}", "012"},
        {"{% decrement n %}{% decrement n %}", "-1-2"},
        {"{% increment n %}{% decrement n %}{% increment n %}", "000"},
        {"{% increment n %}[{{ n }}]", "0[]"},  // counters are not variables
        {"{% if false %}{% increment n %}{% endif %}{% increment n %}", "0"},
        {"{% for i in list %}{% increment n %}{% endfor %}", "012"},
        {"{% capture greeting %}Hi {{ name }}!{% endcapture %}<{{ greeting }}>", "<Hi Ann!>"},
        {"{% capture c %}{% if true %}a{% endif %}{% for i in list %}{{ i }}{% endfor %}{% endcapture %}{{ c }}{{ c }}",
         "a123a123"},
        {"{% if false %}{% capture c %}x{% endcapture %}{% endif %}[{{ c }}]", "[]"},
        {"{% for i in list %}{% capture last %}#{{ i }}{% endcapture %}{% endfor %}{{ last }}", "#3"},
        {"{% unless true %}hidden{% endunless %}", ""},
        {"{% unless tier == 'silver' %}shown{% endunless %}", "shown"},
        {"{% unless true %}A{% else %}B{% endunless %}", "B"}, {"{% unless false %}A{% else %}B{% endunless %}", "A"},
        {"{% unless true %}A{% elsif tier == 'gold' %}G{% else %}B{% endunless %}", "G"},
        {"a{% comment %}b{{ name }}{% if true %}c{% endif %}{% endcomment %}d", "ad"},
        {"a{% comment %}{% for x in nothing %}{% bogus %}{% comment %}{% endcomment %}x{% endcomment %}b", "ab"},
    };
    expectRenders(cases);
}

TEST(Tags, Case) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% case tier %}{% when 'silver' %}S{% when 'gold' %}G{% else %}other{% endcase %}", "G"},
        {"{% case tier %}{% when 'silver' %}S{% when 'bronze' %}B{% else %}other{% endcase %}", "other"},
        {"{% case tier %}{% when 'silver' %}S{% endcase %}.", "."},
        {"{% case tier %}{% when 'gold' %}1{% when 'gold' %}2{% endcase %}", "1"},  // first match only
        {"{% case tier %}{% when 'x', 'gold' %}list{% endcase %}", "list"},
        {"{% case tier %}{% when 'x' or 'gold' %}or{% endcase %}", "or"},
        {"{% case name %}{% when 'Ann, Lee' %}one{% when 'Ann' %}two{% endcase %}", "two"},
        {"{% case count %}{% when 3 %}three{% endcase %}", "three"},  // a host decimal 3 matches 3
        {"{% case tier %}ignored{% when 'gold' %}G{% endcase %}", "G"},
        {"{% case tier %}{% else %}only else{% endcase %}", "only else"},
        {"{% if false %}{% case tier %}{% when 'x' %}{% else %}E{% endcase %}{% endif %}.", "."},
        {"{% case tier %}{% when 'gold' %}{% case name %}{% when 'Bo' %}B{% else %}N{% endcase %}{% endcase %}", "N"},
        {"{% when 'gold' %}outside a case{% endcase %}", ""},
    };
    expectRenders(cases);
}

TEST(Tags, Loops) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% for i in list %}{{ i }}{% endfor %}", "123"},
        {"{% for i in (-1..1) %}[{{ i }}]{% endfor %}", "[-1][0][1]"},
        {"{% for i in empty %}x{% else %}none{% endfor %}", "none"},
        {"{% for i in pair %}{{ i }}{% else %}none{% endfor %}", "ab"},
        {"{% for a in pair %}{{ a }}{{ forloop.index }}{% endfor %}", "a1b2"},  // named before "forloop"
        // A dotted path inside a loop reads the loop's variables only.
        {"{% for item in items %}{{ item.name }}-{{ user.name }}-{{ name }} {% endfor %}", "tea--Ann cake--Ann "},
        {"{% for forloop in pair %}{{ forloop.index }}{% endfor %}", "12"},    // forloop hides it
        {"{% for i in pair %}{{ forloop.index }}{{ forloop.index0 }}{{ forloop.rindex }}{{ forloop.rindex0 }}"
         "{{ forloop.length }}{% if forloop.first %}F{% endif %}{% if forloop.last %}L{% endif %} {% endfor %}",
         "10212F 21102L "},
        {"{% for i in pair %}{% for j in list %}{{ i }}{{ j }}{{ forloop.index }} {% endfor %}{{ forloop.index }}|{% endfor %}",
         "a11 a22 a33 1|b11 b22 b33 2|"},
        {"{% for i in list %}{% if i == 2 %}{% break %}{% endif %}{{ i }}{% endfor %}.", "1."},
        {"{% for i in list %}{% if i == 2 %}{% continue %}{% endif %}{{ i }}{% endfor %}.", "13."},
        {"{% for i in list %}{{ i }}{% break %}x{% endfor %}", "1"},
        {"{% for i in list %}{% continue %}{{ i }}{% increment n %}{% endfor %}{% increment n %}", "0"},
        {"{% for i in pair %}{% for j in list %}{% if j == 2 %}{% break %}{% endif %}{{ i }}{{ j }}{% endfor %}|{% endfor %}",
         "a1|b1|"},
        {"{% for i in list %}{% for j in empty %}{% else %}{% break %}{% endfor %}{{ i }}{% endfor %}", "123"},
        // One inner end tag serves every pass, ending the loop on some and its else on others.
        {"{% for i in list reversed %}{% for j in list offset:i %}{{ j }}{% else %}-{% endfor %};{% endfor %}", "-;3;23;"},
        {"{% for i in list %}{% if i == 1 %}{% break %}{% else %}{{ i }}{% endif %}{% endfor %}", ""},
        {"{% for i in list %}{% assign a = i %}{% if i == 2 %}{% break %}{% endif %}{% assign b = i %}{% endfor %}{{ a }}{{ b }}",
         "21"},
        {"{% break %}{% continue %}outside", "outside"},
        {"{% for i in list %}{% case i %}{% when 2 %}{% continue %}{% endcase %}{{ i }}{% endfor %}", "13"},
        {"{% for i in list %}{% if i == 2 %}{% break %}{% endif %}{% cycle 'a', 'b' %}{% endfor %}{% cycle 'a', 'b' %}", "ab"},
        {"{% case tier %}{% when 'gold' %}{% for i in empty %}{% else %}no items{% endfor %}{% endcase %}", "no items"},
        {"{% for i in list reversed %}{{ i }}{% endfor %}", "321"},
        {"{% for i in (1..10) offset:2 limit:3 reversed %}{{ i }}{{ forloop.index }}{% endfor %}", "514233"},
        {"{% for i in list offset:5 %}x{% else %}past the end{% endfor %}", "past the end"},
        {"{% for i in list limit:missing %}{{ i }}{% endfor %}", "123"},
        {"{% if false %}{% for i in nothing %}x{% else %}y{% endfor %}{% endif %}.", "."},
    };
    expectRenders(cases);
}

TEST(Tags, OffsetContinueResumesWhereTheLastLoopStopped) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% for i in list limit:2 %}{{ i }}{% endfor %}|{% for i in list offset:continue %}{{ i }}{% endfor %}", "12|3"},
        {"{% for i in list offset: continue %}{{ i }}{% endfor %}", "123"},  // no earlier loop
        {"{% for i in list %}{{ i }}{% endfor %}|{% for i in list offset:continue %}{{ i }}{% else %}done{% endfor %}",
         "123|done"},
        {"{% for i in list limit:1 %}{% endfor %}{% for i in list offset:continue %}{{ forloop.index }}{{ forloop.index0 }}"
         "{{ forloop.rindex }}{{ forloop.length }}{% if forloop.first %}F{% endif %}{% if forloop.last %}L{% endif %} {% endfor %}",
         "1022F 2112L "},
        {"{% for i in (1..5) limit:2 %}{{ i }}{% endfor %}|{% for i in (1..5) offset:continue limit:2 %}{{ i }}{% endfor %}|"
         "{% for i in (1..5) offset:continue %}{{ i }}{% endfor %}",
         "12|34|5"},
        {"{% for i in list offset:1 limit:1 %}{{ i }}{% endfor %}|{% for i in list offset:continue %}{{ i }}{% endfor %}", "2|3"},
        {"{% for i in list limit:1 %}{% endfor %}{% for i in list offset:0 %}{{ i }}{% endfor %}", "123"},
        // After a break the next loop starts behind the pass that broke; continue is no break.
        {"{% for i in list %}{{ i }}{% if i == 2 %}{% break %}{% endif %}{% endfor %}|{% for i in list offset:continue %}{{ i }}{% endfor %}",
         "12|3"},
        {"{% for i in (1..4) %}{% break %}{% endfor %}{% for i in (1..4) offset:continue %}{{ i }}{% endfor %}", "234"},
        {"{% for i in list limit:2 %}{% continue %}{% endfor %}{% for i in list offset:continue %}{{ i }}{% endfor %}", "3"},
        {"{% for i in list reversed limit:2 %}{{ i }}{% endfor %}|{% for i in list offset:continue reversed %}{{ i }}{% endfor %}",
         "21|3"},
        {"{% for i in list reversed %}{{ i }}{% break %}{% endfor %}|{% for i in list offset:continue %}{{ i }}{% else %}none{% endfor %}",
         "3|none"},
        // The position belongs to the variable and the collection as written.
        {"{% for i in list limit:2 %}{% endfor %}{% for j in list offset:continue %}{{ j }}{% endfor %}", "123"},
        {"{% for i in pair limit:1 %}{% endfor %}{% for i in list offset:continue %}{{ i }}{% endfor %}", "123"},
        {"{% for i in (1..3) limit:1 %}{% endfor %}{% for i in (1..3)  offset:continue %}{{ i }}{% endfor %}", "23"},
        // ... that is, by the text "variable-collection", however it divides.
        {"{% for x-y in (1..3) limit:1 %}{% endfor %}{% for x in y-(1..3) offset:continue %}{{ x }}{% endfor %}", "23"},
        {"{% for x in (1..3) limit:1 %}{% endfor %}{% for x in (1..3)z offset:continue %}{{ x }}{% endfor %}|"
         "{% for x in (1..3)z limit:2 %}{% endfor %}{% for x in (1..3) offset:continue %}{{ x }}{% endfor %}",
         "123|23"},
        {"{% assign l = list %}{% for i in l limit:2 %}{% endfor %}{% assign l = pair %}"
         "{% for i in l offset:continue %}{{ i }}{% else %}none{% endfor %}",
         "none"},
        // A loop that does not run leaves the position; an inner loop resumes on each outer pass.
        {"{% if false %}{% for i in list limit:2 %}{% endfor %}{% endif %}{% for i in list offset:continue %}{{ i }}{% endfor %}", "123"},
        {"{% for o in pair %}{% for i in list limit:1 offset:continue %}{{ o }}{{ i }} {% endfor %}{% endfor %}", "a1 b2 "},
        // Tables take no "continue" offset.
        {"{% for i in list limit:2 %}{% endfor %}{% tablerow i in list offset:continue cols:3 %}{{ i }}{% endtablerow %}",
         "<tr class=\"row1\">\n<td class=\"col1\">1</td><td class=\"col2\">2</td><td class=\"col3\">3</td></tr>\n"},
    };
    expectRenders(cases);

    // Positions last for one rendering only, whatever the context.
    auto context = sampleContext();
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(render("{% for i in list limit:1 %}{{ i }}{% endfor %}{% for i in list offset:continue %}{{ i }}{% endfor %}", context),
                  "123");
}

TEST(Tags, CycleAndTablerow) {
    const std::pair<const char*, const char*> cases[] = {
        {"{% for i in (1..4) %}{% cycle 'odd', 'even' %} {% endfor %}", "odd even odd even "},
        {"{% cycle 'a', 'b' %}{% cycle 'a', 'b' %}{% cycle 'a', 'b', 'c' %}", "aba"},  // equal lists share
        {"{% cycle 'g': 'a', 'b' %}{% cycle 'h': 'a', 'b' %}{% cycle 'g': 'x', 'y' %}", "aab"},
        {"{% cycle 'x, y', 'z' %}{% cycle 'x, y', 'z' %}", "x, yz"},
        {"{% cycle name, tier %}{% cycle name, tier %}", "Anngold"},
        {"{% if false %}{% cycle 'a', 'b' %}{% endif %}{% cycle 'a', 'b' %}", "a"},
        {"{% tablerow i in list cols:2 %}{{ i }}{% endtablerow %}",
         "<tr class=\"row1\">\n<td class=\"col1\">1</td><td class=\"col2\">2</td></tr>\n"
         "<tr class=\"row2\"><td class=\"col1\">3</td></tr>\n"},
        {"{% tablerow i in pair %}{{ i }}{% endtablerow %}",
         "<tr class=\"row1\">\n<td class=\"col1\">a</td><td class=\"col2\">b</td></tr>\n"},
        {"{% tablerow i in (1..4) cols: 2 limit: 3 %}{% if i == 2 %}{% continue %}{% endif %}{{ i }}{% endtablerow %}",
         "<tr class=\"row1\">\n<td class=\"col1\">1</td><td class=\"col2\"></td></tr>\n<tr class=\"row2\"><td class=\"col1\">3</td></tr>\n"},
        {"{% tablerow i in list cols:1 %}{{ i }}{% break %}{% endtablerow %}", "<tr class=\"row1\">\n<td class=\"col1\">1</td></tr>\n"},
        {"{% tablerow i in empty cols:2 %}{{ i }}{% endtablerow %}.", "."},
        {"{% tablerow i in pair %}{{ forloop.index }}{% endtablerow %}",
         "<tr class=\"row1\">\n<td class=\"col1\">1</td><td class=\"col2\">2</td></tr>\n"},
    };
    expectRenders(cases);
}

TEST(Tags, FailuresAreLoggedAndTheTagIgnored) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"{% for i in name %}[{{ i }}]{% endfor %}", "[]",
         "Tag “for” skipped: Expected array or range parameter for for statement, found Ann"},
        {"{% tablerow i in user %}x{% endtablerow %}", "x",
         "Tag “tablerow” skipped: Expected array or range parameter for for statement, found "},
        {"{% for i of list %}x{% endfor %}", "x", "Tag “for” skipped: Unexpected statement “of”, expected “in”"},
        {"{% for i in list reversed sideways %}x{% endfor %}", "x",
         "Tag “for” skipped: Expected end of tag expression, but found sideways"},
        {"{% for i in list limit:1 cols:2 %}x{% endfor %}", "x", "Tag “for” skipped: Expected end of tag expression, but found cols:2"},
        {"{% for i in list limit: %}x{% endfor %}", "x", "Tag “for” skipped: Expected identifier or literal, found nothing."},
        {"{% capture %}x{% endcapture %}", "x", "Tag “capture” skipped: Expected identifier, found nothing."},
        {"{% cycle %}", "", "Tag “cycle” skipped: Expected group list of strings, found nothing."},
        {"{% cycle 'g': %}", "", "Tag “cycle” skipped: Expected group list of strings, found nothing."},
        {"{% cycle : 'a' %}", "", "Tag “cycle” skipped: Expected identifier, found nothing."},
        {"{% case tier %}{% when %}x{% endcase %}", "", "Tag “when” skipped: Expected identifier or literal, found nothing."},
        {"{% for i in list %}{% break now %}{{ i }}{% endfor %}", "123", "Tag “break” skipped: Expected end of tag expression, but found now"},
        {"{% comment %}x{% endcomment here %}", "", "Tag “endcomment” skipped: Expected end of tag expression, but found here"},
        {"{% for i in list %}{{ i }}", "1", "Unbalanced scopes!!"},
    };
    expectLogs(cases);
}

TEST(Tags, HostileLoopsStayBounded) {
    // A huge range is never materialised, and the walk's step limit stops the passes.
    std::string body;
    for (int i = 0; i < 50; ++i) body += "{{ }}";
    auto rendering = renderTemplate("{% for i in (1..9000000000000000000) %}" + body + "{% endfor %}", sampleContext());
    EXPECT_TRUE(rendering.abandoned);
    EXPECT_LE(rendering.tokenVisits, Parser::maximumTokenVisits + 1);
    auto broken = run("{% for i in (-9223372036854775807..9223372036854775807) %}{{ i }}{% break %}{% endfor %}");
    EXPECT_EQ(broken.output, "-9223372036854775807");
    auto fromEnd = run("{% for i in (1..9000000000000000000) reversed limit:2 %}{{ forloop.rindex }},{% endfor %}");
    EXPECT_EQ(fromEnd.output, "2,1,");

    // Deeply nested loops: counters, cycles and lookups pass through every enclosing loop's
    // context, so loops nest at most maximumNestingDepth deep and deeper ones are skipped.
    std::string nested;
    for (int i = 0; i < 150; ++i) nested += "{% for i in (1..1) %}{% cycle a: 1, 2 %}{% increment n %}{{ x }}";
    LogCapture log;
    auto deep = renderTemplate(nested, sampleContext());
    EXPECT_FALSE(deep.abandoned);
    EXPECT_EQ(log.lines.front(), "Tag “for” skipped: Loops nested more than 100 deep");
    // Each tag and statement is visited once: every loop makes a single pass.
    EXPECT_EQ(deep.tokenVisits, 4u * 150);
}

TEST(Tags, ALoopsContextServesTheNextLoopAndKeepsNothingOfItsRendering) {
    // Loops whose variable sorts before, after or instead of "forloop", one after another: each
    // starts afresh, and the same loops again render the same.
    const std::pair<const char*, const char*> cases[] = {
        {"{% for a in pair %}{{ forloop.index }}{{ a }}{% endfor %}", "1a2b"},
        {"{% for a in list %}{{ forloop.rindex }}{{ a }}{% if forloop.first %}F{% endif %}{% endfor %}", "31F2213"},
        {"{% for zz in pair %}{{ forloop.index0 }}{{ zz }}{% endfor %}", "0a1b"},
        {"{% for forloop in pair %}{{ forloop.length }}{% endfor %}", "22"},
        {"{% for a in pair %}{% assign kept = forloop %}{% endfor %}{% for a in list %}{% endfor %}{{ kept.index }}", "2"},
    };
    for (int round = 0; round < 2; ++round) expectRenders(cases);
    // Once the rendering is over nothing holds its context. (On a thread of its own, whose
    // first loop leaves the context it made for the thread's next loop.)
    std::thread([] {
        std::weak_ptr<Context> context;
        {
            auto shared = contextWith({{"list", Value::array({str("x"), str("y")})}});
            context = shared;
            EXPECT_EQ(render("{% for i in list %}{{ i }}{% endfor %}", shared), "xy");
        }
        EXPECT_TRUE(context.expired());
        // The next loop with the same variable takes it, reading through to its own rendering's context.
        auto next = contextWith({{"list", Value::array({integer(7)})}, {"name", str("Bo")}});
        EXPECT_EQ(render("{% for i in list %}{{ i }}{{ name }}{% endfor %}", next), "7Bo");
    }).join();
}

TEST(Tags, LoopPassesCountTheirVariablesAsTheyHoldThem) {
    // The loop variable sorts before or after "forloop", or is hidden by it; a value past the
    // size limit stops the count early.
    for (std::string name : {"a", "forloop", "zz"}) {
        for (const Value& item : {str("x"), str(std::string(70000, 'x')), Value::array({str("y"), integer(1)})}) {
            auto context = contextWith({{"list", Value::array({item, item})}});
            Parser parser({}, context);
            TagFor loop(context);
            ASSERT_FALSE(loop.parse("for " + name + " in list", parser, parser.rootScope()));
            for (auto pass = loop.iterationContext(); pass; pass = loop.nextIterationContext())
                EXPECT_EQ(loop.passVariablesSize(), Parser::variablesSize(pass->variables)) << name;
        }
    }
}

}  // namespace
}  // namespace drovel::templating
