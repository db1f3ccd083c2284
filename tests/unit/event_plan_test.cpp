// Schedules, push plans and linked-channel lists, with the strings that
// tell a faithful checker from a plausible one.
#include "harness/dsd_harness.h"
#include "modules/event/plan_checkers.h"
#include "platform/trace.h"

namespace {

using checker = int32_t (*)(ds_context *, json_object *, json_object *, const void *, int32_t);

int32_t run(checker fn, const std::string &text, const void *arg = nullptr, int32_t code = 0)
{
    json_object *v = json_object_new_string(text.c_str());
    int32_t rc = fn(nullptr, v, nullptr, arg, code);
    json_object_put(v);
    return rc;
}

std::string plan(std::initializer_list<const char *> periods)
{
    std::string s = "[";
    for (const char *p : periods)
        s += std::string(s.size() > 1 ? "," : "") + "\"" + p + "\"";
    return s + "]";
}

const checker kPlain[] = {check_md_plan, check_tamper_plan, check_facecomparison_plan, check_id_plan,
                          check_ld_plan};

TEST(PlanCheck, WholeDayAndEmptyListsPass)
{
    for (checker c : kPlain) {
        EXPECT_EQ(run(c, plan({"0000-2400"})), 0);
        EXPECT_EQ(run(c, "[]"), 0);
        EXPECT_EQ(run(c, ""), 0);
        EXPECT_EQ(run(c, "no quotes at all"), 0);
    }
    EXPECT_EQ(run(check_plan, plan({"0000-2400:1"}), &plan_form_record), 0);
    EXPECT_EQ(run(check_plan, plan({"0000-2400:1"}), &plan_form_capture), 0);
    EXPECT_EQ(run(check_plan, plan({"0000-2400:3"}), &plan_form_record), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_plan, plan({"0000-2400"}), &plan_form_record), PLAN_ERR_FORMAT); // no mode
}

TEST(PlanCheck, PeriodLimits)
{
    const std::string s7 = plan({"0000-0100:1", "0100-0200:1", "0200-0300:1", "0300-0400:1",
                                 "0400-0500:1", "0500-0600:1", "0600-0700:1"});
    EXPECT_EQ(run(check_plan, s7, &plan_form_capture), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_plan, s7, &plan_form_record), 0);
    std::string nine = plan({"0000-0100", "0100-0200", "0200-0300", "0300-0400", "0400-0500",
                             "0500-0600", "0600-0700", "0700-0800", "0800-0900"});
    for (checker c : kPlain)
        EXPECT_EQ(run(c, nine), PLAN_ERR_FORMAT);
    json_object *num = json_object_new_int(5);
    EXPECT_EQ(check_md_plan(nullptr, num, nullptr, nullptr, 0), PLAN_ERR_PARAM);
    EXPECT_EQ(check_md_plan(nullptr, nullptr, nullptr, nullptr, 0), PLAN_ERR_PARAM);
    json_object_put(num);
}

TEST(PlanCheck, BoundsOrderingAndOverlapCodes)
{
    static const struct { std::initializer_list<const char *> periods; int32_t code; } rows[] = {
        {.periods = {"2401-2400"}, .code = PLAN_ERR_BOUNDARY}, {.periods = {"1200-1100"}, .code = PLAN_ERR_ORDER},
        {.periods = {"1230-1200"}, .code = PLAN_ERR_ORDER},    {.periods = {"0000-2430"}, .code = PLAN_ERR_BOUNDARY},
        {.periods = {"0000-2500"}, .code = PLAN_ERR_FORMAT},   {.periods = {"0060-0100"}, .code = PLAN_ERR_FORMAT},
        {.periods = {"-100-0200"}, .code = PLAN_ERR_FORMAT},   // negative, compared unsigned
        {.periods = {"0800-0800"}, .code = 0},                 // zero length
        // Overlaps: only a later period starting inside an earlier one counts.
        {.periods = {"0000-2400", "0100-0200"}, .code = 0},
        {.periods = {"0100-0200", "0000-2400"}, .code = PLAN_ERR_FORMAT},
        {.periods = {"0800-1200", "0800-1200"}, .code = 0},    // identical
        {.periods = {"0000-0800", "0800-1200"}, .code = 0},    // touching
        {.periods = {"0900-1300", "0800-1200"}, .code = PLAN_ERR_FORMAT},
        {.periods = {"0700-0900", "0800-1200"}, .code = PLAN_ERR_FORMAT},
    };
    for (const auto &r : rows)
        EXPECT_EQ(run(check_md_plan, plan(r.periods)), r.code) << plan(r.periods);
    // The typed family reports every fault as a format error.
    EXPECT_EQ(run(check_plan, plan({"1200-1100:1"}), &plan_form_record), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_plan, plan({"2401-2400:1"}), &plan_form_record), PLAN_ERR_FORMAT);
}

TEST(PlanCheck, TrailingTextOnlyMattersToStrictMembers)
{
    const std::string p = plan({"0800-1200x"});
    EXPECT_EQ(run(check_md_plan, p), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_tamper_plan, p), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_facecomparison_plan, p), PLAN_ERR_FORMAT);
    EXPECT_EQ(run(check_id_plan, p), 0);
    EXPECT_EQ(run(check_ld_plan, p), 0);
    EXPECT_EQ(run(check_plan, plan({"0800-1200:1x"}), &plan_form_record), PLAN_ERR_FORMAT);
}

TEST(PushPlan, HoursStopAt23AndNoDigitsPass)
{
    EXPECT_EQ(run(check_msg_push_plan_format, "2330-2359,127"), 0);
    EXPECT_EQ(run(check_msg_push_plan_format, "2400-2400,1"), PUSH_PLAN_ERR);
    EXPECT_EQ(run(check_msg_push_plan_format, "0000-0100,128"), PUSH_PLAN_ERR);
    EXPECT_EQ(run(check_msg_push_plan_format, "1200-0100,1"), 0); // start need not precede end
    EXPECT_EQ(run(check_msg_push_plan_format, "no digits"), 0);
    json_object *num = json_object_new_int(1);
    EXPECT_EQ(check_msg_push_plan_format(nullptr, num, nullptr, nullptr, 0), PUSH_PLAN_ERR);
    json_object_put(num);
}

TEST(UnionCheck, BoundsAndFormats)
{
    set_trace_level(3);
    // Bounds and lists that are no JSON array are held by the end-to-end rows.
    EXPECT_EQ(run(check_alarm_output_union, "[1,1]"), 0);
    EXPECT_EQ(run(check_alarm_record_union, "{\"a\":1}"), -73712);
    EXPECT_EQ(run(unusual_check_record_union, "[0]", nullptr, -1), -1); // the row code wins
    EXPECT_EQ(run(check_record_union, "anything"), 0);
    json_object *num = json_object_new_int(1);
    EXPECT_EQ(check_record_union(nullptr, num, nullptr, nullptr, -73910), -73910);
    EXPECT_EQ(check_record_union(nullptr, num, nullptr, nullptr, 0), -70710);
    json_object_put(num);
}

} // namespace
