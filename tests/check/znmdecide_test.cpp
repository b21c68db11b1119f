// Every combination of facts, what must never follow from one, and what always must.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "znmdecide.h"

namespace
{
using enum ZN_PRESENCE;
using enum ZN_RELATION;
using enum ZN_RECORDED;
using enum ZN_CONF;

// The tree has everything that is known of.
bool IsWhole(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    const ZN_PRESENCE eOther = pair.aePresence[eSide == ZN_OLD ? ZN_NEW : ZN_OLD];
    const ZN_RELATION e = pair.eRelation;
    const bool fContains = e == SAME || (eSide == ZN_NEW ? e == OLD_IN_NEW : e == NEW_IN_OLD || e == CUT);
    return pair.aePresence[eSide] == THERE && pair.aeRecorded[eSide] != OTHER &&
           (eOther == GONE || (eOther == THERE && fContains));
}
bool IsWhole(const ZNFacts& facts, ZN_CONF eConf)
{
    return IsWhole(facts.aPairs[ZN_DATA], ZNCountingSide(eConf, ZN_DATA)) &&
           IsWhole(facts.aPairs[ZN_LOG], ZNCountingSide(eConf, ZN_LOG));
}

// Whether a step may be advised, whatever the state is called.
bool IsHarmless(const ZNStep& step, const std::vector<ZNStep>& steps, const ZNFacts& facts)
{
    const ZNPairFacts &pair = facts.aPairs[step.eTree], &log = facts.aPairs[ZN_LOG];
    const ZN_SIDE eStays = step.eSide == ZN_OLD ? ZN_NEW : ZN_OLD;
    const bool fNamed = ZNCountingSide(facts.eConf, step.eTree) == step.eSide;
    const bool fProved = pair.aePresence[step.eSide] == THERE && IsWhole(pair, eStays);
    const auto isKept = [](ZN_RECORDED e) { return e == IS || e == GREW; };
    switch (step.eStep)
    {
    case ZN_STEP::REMOVE:
        return fProved && !fNamed && pair.eTie == ZN_TIE::FREE && !step.fOnlyIf &&
               (step.eTree == ZN_DATA || &step == &steps.front()) && // the log may lie in the data
               std::ranges::none_of(steps, [](const ZNStep& other) {
                   return other.eStep == ZN_STEP::EDIT_PREFIX || other.eStep == ZN_STEP::EDIT_LOG_PATH;
               });
    case ZN_STEP::ASIDE:
        return (fProved || step.fOnlyIf) && !fNamed && pair.eTie != ZN_TIE::HELD &&
               pair.aePresence[step.eSide] == THERE && pair.aePresence[eStays] == THERE;
    case ZN_STEP::EDIT_PREFIX: // the log is that of the qm.ini in that place
        return pair.aePresence[step.eSide] == THERE &&
               (step.fOnlyIf           ? isKept(pair.aeRecorded[ZN_OLD]) && isKept(log.aeRecorded[ZN_OLD])
                : step.eSide == ZN_OLD ? IsWhole(facts, OLD)
                                       : IsWhole(pair, ZN_NEW));
    case ZN_STEP::EDIT_LOG_PATH:
        return IsWhole(log, ZN_NEW);
    case ZN_STEP::COPY_LOG: // over what the old tree has
        return IsWhole(log, ZN_OLD) && (log.aePresence[ZN_NEW] == GONE || log.eTie == ZN_TIE::FREE);
    case ZN_STEP::MOVE:
        return facts.fAccepts && facts.eConf == OLD && IsWhole(facts, OLD);
    case ZN_STEP::MOVE_BACK:
        return facts.fWayBack && IsWhole(facts, NEW);
    default:
        return true;
    }
}

// What holds of a verdict while the look is good and the queue manager does not run.
bool IsRight(const ZNVerdict& verdict, const ZNFacts& facts)
{
    const auto isGone = [](const ZNPairFacts& pair) { return pair.aePresence[ZN_OLD] == GONE; };
    const auto isFree = [](const ZNPairFacts& pair) { return pair.eTie == ZN_TIE::FREE; };
    const ZN_STATUS e = verdict.eStatus;
    bool fRight = (e == ZN_STATUS_OK) == (facts.eConf == NEW && IsWhole(facts, facts.eConf) &&
                                          std::ranges::all_of(facts.aPairs, isGone)) &&
                  (e != ZN_STATUS_NOT_MOVED || facts.eConf == OLD) &&
                  (e != ZN_STATUS_TO_DO || verdict.finish.size() + verdict.takeBack.size() > 0) &&
                  (e != ZN_STATUS_CANNOT_TELL || !std::ranges::all_of(facts.aPairs, isFree) ||
                   (!IsWhole(facts, OLD) && !IsWhole(facts, BETWEEN) && !IsWhole(facts, NEW))) &&
                  (verdict.eStart == ZN_START::YES) ==
                      (e <= ZN_STATUS_NOT_MOVED || verdict.eState == ZN_STATE::MOVED_LEFT);
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        const ZNPairFacts& pair = facts.aPairs[eTree];
        const bool fUnseenButRecorded = facts.eConf == OLD && pair.aePresence[ZN_NEW] == UNSEEN &&
                                        (pair.aeRecorded[ZN_OLD] == IS || pair.aeRecorded[ZN_OLD] == GREW);
        fRight = fRight && (verdict.eStart == ZN_START::NO || fUnseenButRecorded ||
                            IsWhole(pair, ZNCountingSide(facts.eConf, eTree)));
    }
    for (const auto& steps : {verdict.finish, verdict.takeBack})
        fRight =
            fRight && (steps.empty() || steps.back().eStep >= ZN_STEP::LOOK) &&
            std::ranges::all_of(steps, [&](const ZNStep& step) { return IsHarmless(step, steps, facts); });
    return fRight;
}
} // namespace

TEST(Decide, KeepsItsRulesForEveryCombination)
{
    std::vector<ZNPairFacts> pairs;
    for (const ZN_PRESENCE eOld : {THERE, GONE, UNSEEN})
        for (const ZN_PRESENCE eNew : {THERE, GONE, UNSEEN})
            for (const ZN_RELATION eRelation : {SAME, OLD_IN_NEW, NEW_IN_OLD, CUT, APART})
                for (const ZN_RECORDED eOldRecorded : {NONE, IS, GREW, OTHER})
                    for (const ZN_RECORDED eNewRecorded : {NONE, IS, GREW, OTHER})
                        for (const ZN_TIE eTie : {ZN_TIE::FREE, ZN_TIE::LINKED, ZN_TIE::HELD})
                            if (eRelation == APART || (eOld == THERE && eNew == THERE))
                                pairs.push_back(
                                    {{eOld, eNew}, {eOldRecorded, eNewRecorded}, eRelation, eTie});
    std::set<ZN_STATE> reached;
    const auto test = [&](ZNFacts facts) {
        const ZNVerdict verdict = ZNDecide(facts);
        reached.insert(verdict.eState);
        facts.fRuns = true; // it is ended first
        const ZNVerdict running = ZNDecide(facts);
        facts.eLook = ZN_LOOK::UNDER_WAY;
        const ZNVerdict moving = ZNDecide(facts);
        facts.eLook = ZN_LOOK::UNUSABLE;
        facts.fRuns = false;
        const ZNVerdict unusable = ZNDecide(facts);
        if (!IsRight(verdict, facts) || running.eStatus != verdict.eStatus ||
            running.eStart != ZN_START::RUNS || running.finish.front().eStep != ZN_STEP::END ||
            !running.takeBack.empty() || moving.eStatus != ZN_STATUS_UNDER_WAY ||
            unusable.eStatus != ZN_STATUS_CANNOT_TELL || unusable.eStart != ZN_START::NO ||
            unusable.finish.size() != 1 || !unusable.takeBack.empty())
            ADD_FAILURE() << testing::PrintToString(facts);
    };
    for (const ZN_CONF eConf : {OLD, BETWEEN, NEW})
        for (const ZNPairFacts& data : pairs)
            for (const ZNPairFacts& log : pairs)
                for (const bool fAccepts : {false, true})
                    test({ZN_LOOK::OK, eConf, false, fAccepts, !fAccepts, {data, log}});
    EXPECT_EQ(reached.size(), 8U); // all but UNDER_WAY
}
