// Every combination of facts, and what must never follow from one. The steps are followed in a model until
// nothing is left to do.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "znmdecide.h"

namespace
{
using enum ZN_PRESENCE;
using enum ZN_RELATION;
using enum ZN_RECORDED;

bool IsIn(const ZNPairFacts& pair, ZN_SIDE eStays)
{
    const ZN_RELATION e = pair.eRelation;
    return e == SAME || (eStays == ZN_NEW ? e == OLD_IN_NEW : e == NEW_IN_OLD || e == CUT);
}

ZN_SIDE Other(ZN_SIDE eSide)
{
    return eSide == ZN_OLD ? ZN_NEW : ZN_OLD;
}

// The tree has everything that is known of.
bool IsWhole(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    const ZN_PRESENCE eOther = pair.aePresence[Other(eSide)];
    return pair.aePresence[eSide] == THERE && pair.aeRecorded[eSide] != OTHER &&
           (eOther == GONE || (eOther == THERE && IsIn(pair, eSide)));
}
bool IsWhole(const ZNFacts& facts, ZN_CONF eConf)
{
    return IsWhole(facts.aPairs[ZN_DATA], ZNCountingSide(eConf, ZN_DATA)) &&
           IsWhole(facts.aPairs[ZN_LOG], ZNCountingSide(eConf, ZN_LOG));
}

// What two trees can be to each other and to the record at once.
bool IsPossible(const ZNPairFacts& pair)
{
    const ZN_RECORDED eOld = pair.aeRecorded[ZN_OLD], eNew = pair.aeRecorded[ZN_NEW];
    const auto kept = [](ZN_RECORDED e) { return e == IS || e == GREW; };
    if ((eOld == NONE) != (eNew == NONE))
        return false;
    for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
        if (pair.aePresence[eSide] != THERE && kept(pair.aeRecorded[eSide]))
            return false;
    if (pair.aePresence[ZN_OLD] != THERE || pair.aePresence[ZN_NEW] != THERE)
        return pair.eRelation == APART; // one of those that do not count
    switch (pair.eRelation)
    {
    case SAME:
        return eOld == eNew;
    case OLD_IN_NEW:
        return !kept(eOld) || eNew == GREW;
    case NEW_IN_OLD:
        return !kept(eNew) || eOld == GREW;
    case CUT:
        return !kept(eNew);
    case APART:
        return !(eOld == IS && eNew == IS);
    }
    return false;
}

std::vector<ZNPairFacts> PossiblePairs()
{
    std::vector<ZNPairFacts> pairs;
    for (const ZN_PRESENCE eOld : {THERE, GONE, UNSEEN})
        for (const ZN_PRESENCE eNew : {THERE, GONE, UNSEEN})
            for (const ZN_RELATION eRelation : {SAME, OLD_IN_NEW, NEW_IN_OLD, CUT, APART})
                for (const ZN_RECORDED eOldRecorded : {NONE, IS, GREW, OTHER})
                    for (const ZN_RECORDED eNewRecorded : {NONE, IS, GREW, OTHER})
                        for (const ZN_TIE eTie : {ZN_TIE::FREE, ZN_TIE::LINKED, ZN_TIE::HELD})
                            if (const ZNPairFacts pair{
                                    {eOld, eNew}, {eOldRecorded, eNewRecorded}, eRelation, eTie};
                                IsPossible(pair))
                                pairs.push_back(pair);
    return pairs;
}

// The queue manager's data directory is there, and places that the files name are known.
bool IsPossible(const ZNFacts& facts)
{
    const ZNPairFacts &data = facts.aPairs[ZN_DATA], &log = facts.aPairs[ZN_LOG];
    return data.aePresence[ZNCountingSide(facts.eConf, ZN_DATA)] == THERE &&
           log.aePresence[ZNCountingSide(facts.eConf, ZN_LOG)] != UNSEEN &&
           (data.aeRecorded[ZN_OLD] == NONE) == (log.aeRecorded[ZN_OLD] == NONE);
}

// Calls test(facts) for all that can be while a look is good and the queue manager does not run.
template <class Test>
void ForAllFacts(Test test)
{
    static const std::vector<ZNPairFacts> pairs = PossiblePairs();
    for (const ZN_CONF eConf : {ZN_CONF::OLD, ZN_CONF::BETWEEN, ZN_CONF::NEW})
        for (const ZNPairFacts& data : pairs)
            for (const ZNPairFacts& log : pairs)
                for (const int n : {0, 1, 2, 3})
                    if (const ZNFacts facts{ZN_LOOK::OK, eConf, false, n % 2 != 0, n / 2 != 0, {data, log}};
                        IsPossible(facts))
                        test(facts);
}

// Whether a step may be advised, whatever the state is called.
bool IsHarmless(const ZNStep& step, const std::vector<ZNStep>& steps, const ZNFacts& facts)
{
    const auto has = [&](ZN_STEP e) {
        return std::ranges::any_of(steps, [&](const ZNStep& other) { return other.eStep == e; });
    };
    const ZNPairFacts& pair = facts.aPairs[step.eTree];
    const ZN_SIDE eStays = Other(step.eSide);
    const bool fNamed = ZNCountingSide(facts.eConf, step.eTree) == step.eSide;
    const bool fProved = pair.aePresence[step.eSide] == THERE && IsWhole(pair, eStays);
    switch (step.eStep)
    {
    case ZN_STEP::REMOVE:
        return fProved && !fNamed && pair.eTie == ZN_TIE::FREE && !step.fOnlyIf &&
               !has(ZN_STEP::EDIT_PREFIX) && !has(ZN_STEP::EDIT_LOG_PATH);
    case ZN_STEP::ASIDE:
        return (fProved || step.fOnlyIf) && !fNamed && pair.eTie != ZN_TIE::HELD &&
               pair.aePresence[step.eSide] == THERE && pair.aePresence[eStays] == THERE;
    case ZN_STEP::EDIT_PREFIX: // the log is that of the qm.ini in that place
        return pair.aePresence[step.eSide] == THERE &&
               (step.fOnlyIf ||
                (step.eSide == ZN_OLD ? IsWhole(facts, ZN_CONF::OLD) : IsWhole(pair, ZN_NEW)));
    case ZN_STEP::EDIT_LOG_PATH:
        return IsWhole(facts.aPairs[ZN_LOG], ZN_NEW);
    case ZN_STEP::COPY_LOG: // over what the old tree has
    {
        const ZNPairFacts& log = facts.aPairs[ZN_LOG];
        return IsWhole(log, ZN_OLD) && (log.aePresence[ZN_NEW] == GONE || log.eTie == ZN_TIE::FREE);
    }
    case ZN_STEP::MOVE:
        return facts.fAccepts && facts.eConf == ZN_CONF::OLD && IsWhole(facts, ZN_CONF::OLD);
    case ZN_STEP::MOVE_BACK:
        return facts.fWayBack && IsWhole(facts, ZN_CONF::NEW);
    default:
        return true;
    }
}

// What a step makes of the facts. nQmIni: the side that LogPath in the new qm.ini names.
void Follow(const ZNStep& step, ZNFacts& facts, ZN_SIDE& eQmIni)
{
    ZNPairFacts& log = facts.aPairs[ZN_LOG];
    const auto moveTo = [&](ZN_SIDE eTo, ZN_CONF eConf) {
        for (ZNPairFacts& pair : facts.aPairs)
        {
            pair.aeRecorded[eTo] = pair.aeRecorded[Other(eTo)];
            pair.aePresence[eTo] = THERE;
            pair.aePresence[Other(eTo)] = GONE;
        }
        facts.eConf = eConf;
    };
    switch (step.eStep)
    {
    case ZN_STEP::REMOVE:
    case ZN_STEP::ASIDE:
        facts.aPairs[step.eTree].aePresence[step.eSide] = GONE;
        break;
    case ZN_STEP::EDIT_LOG_PATH:
        eQmIni = ZN_NEW;
        if (facts.eConf == ZN_CONF::BETWEEN)
            facts.eConf = ZN_CONF::NEW;
        break;
    case ZN_STEP::EDIT_PREFIX:
        facts.eConf = step.eSide == ZN_OLD ? ZN_CONF::OLD
                      : eQmIni == ZN_OLD   ? ZN_CONF::BETWEEN
                                           : ZN_CONF::NEW;
        break;
    case ZN_STEP::COPY_LOG:
        log.eRelation = SAME;
        log.aePresence[ZN_NEW] = THERE;
        log.aeRecorded[ZN_NEW] = log.aeRecorded[ZN_OLD];
        break;
    case ZN_STEP::LOOK_UNRECORDED:
        for (ZNPairFacts& pair : facts.aPairs)
            pair.aeRecorded[ZN_OLD] = pair.aeRecorded[ZN_NEW] = NONE;
        break;
    case ZN_STEP::MOVE:
        moveTo(ZN_NEW, ZN_CONF::NEW);
        break;
    case ZN_STEP::MOVE_BACK:
        moveTo(ZN_OLD, ZN_CONF::OLD);
        break;
    default:
        break;
    }
}

// Whether following one of the lists ends where nothing is left to do.
bool Ends(ZNFacts facts, bool fFinish, ZN_SIDE eQmIni)
{
    for (int nRound = 0; nRound < 8; ++nRound)
    {
        const ZNVerdict verdict = ZNDecide(facts);
        if (verdict.eStatus == (fFinish ? ZN_STATUS_OK : ZN_STATUS_NOT_MOVED))
            return true;
        const std::vector<ZNStep>& steps = fFinish ? verdict.finish : verdict.takeBack;
        if (steps.empty())
            return verdict.eStatus <= ZN_STATUS_NOT_MOVED;
        for (const ZNStep& step : steps)
            Follow(step, facts, eQmIni);
    }
    return false;
}
} // namespace

TEST(Decide, KeepsItsRulesForEveryCombination)
{
    long nCombinations = 0;
    ForAllFacts([&](const ZNFacts& facts) {
        ++nCombinations;
        const ZNVerdict verdict = ZNDecide(facts);
        const ZNPairFacts &data = facts.aPairs[ZN_DATA], &log = facts.aPairs[ZN_LOG];
        const bool fOldGone = data.aePresence[ZN_OLD] == GONE && log.aePresence[ZN_OLD] == GONE;
        bool fRight =
            verdict.eStatus != ZN_STATUS_UNDER_WAY && verdict.eStart != ZN_START::RUNS &&
            (verdict.eStatus == ZN_STATUS_OK) ==
                (facts.eConf == ZN_CONF::NEW && IsWhole(facts, facts.eConf) && fOldGone) &&
            (verdict.eStatus != ZN_STATUS_NOT_MOVED || facts.eConf == ZN_CONF::OLD) &&
            (verdict.eStatus != ZN_STATUS_TO_DO || verdict.finish.size() + verdict.takeBack.size() > 0);
        for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
        {
            const ZNPairFacts& pair = facts.aPairs[eTree];
            const ZN_SIDE e = ZNCountingSide(facts.eConf, eTree);
            const bool fUnseenButRecorded =
                facts.eConf == ZN_CONF::OLD && pair.aePresence[ZN_NEW] == UNSEEN &&
                (pair.aeRecorded[ZN_OLD] == IS || pair.aeRecorded[ZN_OLD] == GREW);
            fRight = fRight && (verdict.eStart == ZN_START::NO || IsWhole(pair, e) || fUnseenButRecorded);
        }
        for (const auto* const pSteps : {&verdict.finish, &verdict.takeBack})
            for (const ZNStep& step : *pSteps)
                fRight = fRight && IsHarmless(step, *pSteps, facts);
        if (!fRight)
            ADD_FAILURE() << testing::PrintToString(facts);
    });
    EXPECT_GT(nCombinations, 100'000);
}

TEST(Decide, EveryWholeStateHasAWayOn)
{
    ForAllFacts([&](const ZNFacts& facts) {
        const auto free = [](const ZNPairFacts& pair) { return pair.eTie == ZN_TIE::FREE; };
        const bool fWhole =
            std::ranges::any_of(std::initializer_list<ZN_CONF>{ZN_CONF::OLD, ZN_CONF::BETWEEN, ZN_CONF::NEW},
                                [&](ZN_CONF eConf) { return IsWhole(facts, eConf); });
        if (fWhole && std::ranges::all_of(facts.aPairs, free) && facts.fAccepts)
            for (const ZN_SIDE eQmIni : {ZN_OLD, ZN_NEW})
                if (!Ends(facts, true, eQmIni) && !Ends(facts, false, eQmIni))
                    ADD_FAILURE() << testing::PrintToString(facts) << eQmIni;
    });
}

// A queue manager that runs is ended first, and what cannot be looked at is not judged.
TEST(Decide, StepsAreHeldBackWhereNothingMayBeDone)
{
    ForAllFacts([&](ZNFacts facts) {
        const ZNVerdict still = ZNDecide(facts);
        facts.fRuns = true;
        const ZNVerdict running = ZNDecide(facts);
        bool fRight = running.eStatus == still.eStatus && running.eStart == ZN_START::RUNS &&
                      running.finish.front().eStep == ZN_STEP::END && running.takeBack.empty();
        facts.eLook = ZN_LOOK::UNDER_WAY;
        fRight = fRight && ZNDecide(facts).eStatus == ZN_STATUS_UNDER_WAY;
        facts.eLook = ZN_LOOK::UNUSABLE;
        facts.fRuns = false;
        const ZNVerdict unusable = ZNDecide(facts);
        fRight = fRight && unusable.eStatus == ZN_STATUS_CANNOT_TELL && unusable.eStart == ZN_START::NO &&
                 unusable.finish.size() == 1 && unusable.takeBack.empty();
        if (!fRight)
            ADD_FAILURE() << testing::PrintToString(facts);
    });
}
