// Decides. Must not ask the system anything: what is not among the facts does not count.
#include "znmdecide.h"

#include <algorithm>

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmdecide");

namespace
{
using Steps = std::vector<ZNStep>;

enum STANDING // whether a tree has everything that is known of
{
    LACKS,
    UNKNOWN, // nothing speaks against it, but the other tree cannot be seen
    HAS_ALL,
};

ZN_SIDE Other(ZN_SIDE eSide)
{
    return eSide == ZN_OLD ? ZN_NEW : ZN_OLD;
}

bool IsThere(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    return pair.aePresence[eSide] == ZN_PRESENCE::THERE;
}

bool IsAsRecorded(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    return pair.aeRecorded[eSide] == ZN_RECORDED::IS || pair.aeRecorded[eSide] == ZN_RECORDED::GREW;
}

// Whether the tree has what the other one of the pair has.
bool Contains(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    const ZN_RELATION e = pair.eRelation;
    return e == ZN_RELATION::SAME ||
           (eSide == ZN_NEW ? e == ZN_RELATION::OLD_IN_NEW
                            : e == ZN_RELATION::NEW_IN_OLD || e == ZN_RELATION::CUT);
}

STANDING Standing(const ZNPairFacts& pair, ZN_SIDE eSide)
{
    const ZN_PRESENCE eOther = pair.aePresence[Other(eSide)];
    if (!IsThere(pair, eSide) || pair.aeRecorded[eSide] == ZN_RECORDED::OTHER)
        return LACKS;
    if (eOther == ZN_PRESENCE::UNSEEN)
        return UNKNOWN;
    return eOther == ZN_PRESENCE::GONE || Contains(pair, eSide) ? HAS_ALL : LACKS;
}

class Decision
{
  public:
    explicit Decision(const ZNFacts& facts)
        : m_facts(facts), m_data(facts.aPairs[ZN_DATA]), m_log(facts.aPairs[ZN_LOG]),
          m_eOld(Standing(ZN_CONF::OLD)), m_eBetween(Standing(ZN_CONF::BETWEEN)),
          m_eNew(Standing(ZN_CONF::NEW))
    {
    }
    ZNVerdict Make();

  private:
    // Of the two trees that a configuration names.
    STANDING Standing(ZN_CONF eConf) const
    {
        return std::min(::Standing(m_data, ZNCountingSide(eConf, ZN_DATA)),
                        ::Standing(m_log, ZNCountingSide(eConf, ZN_LOG)));
    }
    void Conclude(ZN_STATE eState, ZN_STATUS eStatus, Steps finish, Steps takeBack = {})
    {
        const bool fStart =
            eState == ZN_STATE::NOT_MOVED || eState == ZN_STATE::MOVED || eState == ZN_STATE::MOVED_LEFT;
        m_verdict = {eState, eStatus, fStart ? ZN_START::YES : ZN_START::NO, std::move(finish),
                     std::move(takeBack)};
    }
    void WithOldNamed();
    void WithNewDataAndOldLogNamed();
    void WithNewNamed();
    void CannotTell();
    Steps SetAside() const;
    Steps Discard(ZN_SIDE eSide, bool fTiedOnly = false) const;
    Steps CopyLog() const;

    const ZNFacts& m_facts;
    const ZNPairFacts &m_data, &m_log;
    const STANDING m_eOld, m_eBetween, m_eNew;
    ZNVerdict m_verdict;
};

// Removes trees that are in the ones that stay, or renames those that a link ties. The log goes first: it may
// lie in the data.
Steps Decision::Discard(ZN_SIDE eSide, bool fTiedOnly) const
{
    Steps steps;
    for (const ZN_TREE eTree : {ZN_LOG, ZN_DATA})
    {
        const ZNPairFacts& pair = m_facts.aPairs[eTree];
        if (!IsThere(pair, eSide) || pair.eTie == ZN_TIE::HELD || (fTiedOnly && pair.eTie == ZN_TIE::FREE))
            continue;
        steps.push_back({pair.eTie == ZN_TIE::FREE ? ZN_STEP::REMOVE : ZN_STEP::ASIDE, eTree, eSide});
    }
    return steps;
}

// Makes the new log tree, which is in the old one, the same again.
Steps Decision::CopyLog() const
{
    if (m_log.eTie == ZN_TIE::FREE || !IsThere(m_log, ZN_NEW))
        return {{ZN_STEP::COPY_LOG}};
    if (m_log.eTie == ZN_TIE::LINKED && m_facts.eConf == ZN_CONF::BETWEEN)
        return {{ZN_STEP::ASIDE, ZN_LOG, ZN_NEW}};
    return {};
}

void Decision::WithOldNamed()
{
    const auto isKnown = [](const ZNPairFacts& pair) {
        return ::Standing(pair, ZN_OLD) == HAS_ALL || IsAsRecorded(pair, ZN_OLD);
    };
    const bool fTied = (m_data.eTie != ZN_TIE::FREE && IsThere(m_data, ZN_NEW)) ||
                       (m_log.eTie != ZN_TIE::FREE && IsThere(m_log, ZN_NEW));
    if (m_eOld == HAS_ALL)
        Conclude(ZN_STATE::NOT_MOVED, ZN_STATUS_NOT_MOVED,
                 fTied ? Discard(ZN_NEW, true) : Steps{{m_facts.fAccepts ? ZN_STEP::MOVE : ZN_STEP::BEFORE}},
                 Discard(ZN_NEW));
    else if (m_eOld == UNKNOWN && isKnown(m_data) && isKnown(m_log))
        Conclude(ZN_STATE::NOT_MOVED, ZN_STATUS_NOT_MOVED, {{ZN_STEP::LOOK_NAMED}});
    else if (m_eNew == HAS_ALL)
        Conclude(ZN_STATE::NEW_AHEAD, ZN_STATUS_TO_DO,
                 {{ZN_STEP::EDIT_LOG_PATH, ZN_LOG, ZN_NEW}, {ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_NEW}},
                 SetAside());
    else if (m_eBetween == HAS_ALL)
        Conclude(ZN_STATE::NEW_AHEAD, ZN_STATUS_TO_DO, {{ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_NEW}}, SetAside());
}

void Decision::WithNewDataAndOldLogNamed()
{
    const bool fData = ::Standing(m_data, ZN_NEW) != LACKS;
    const Steps back = m_eOld == HAS_ALL ? Steps{{ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_OLD}} : Steps();
    if (fData && ::Standing(m_log, ZN_NEW) == HAS_ALL)
        Conclude(ZN_STATE::IN_BETWEEN, ZN_STATUS_TO_DO, {{ZN_STEP::EDIT_LOG_PATH, ZN_LOG, ZN_NEW}}, back);
    else if (fData && ::Standing(m_log, ZN_OLD) == HAS_ALL)
        Conclude(ZN_STATE::IN_BETWEEN, ZN_STATUS_TO_DO, CopyLog(), back);
    else if (m_eOld == HAS_ALL)
        Conclude(ZN_STATE::OLD_AHEAD, ZN_STATUS_TO_DO, back, back);
}

void Decision::WithNewNamed()
{
    if (m_eNew == HAS_ALL && (IsThere(m_data, ZN_OLD) || IsThere(m_log, ZN_OLD)))
        Conclude(ZN_STATE::MOVED_LEFT, ZN_STATUS_TO_DO, Discard(ZN_OLD));
    else if (m_eNew == HAS_ALL)
        Conclude(ZN_STATE::MOVED, ZN_STATUS_OK, {}, m_facts.fWayBack ? Steps{{ZN_STEP::MOVE_BACK}} : Steps());
    else if (m_eOld == HAS_ALL)
        Conclude(ZN_STATE::OLD_AHEAD, ZN_STATUS_TO_DO, {{ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_OLD}},
                 {{ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_OLD}});
    else if (m_eBetween == HAS_ALL)
        Conclude(ZN_STATE::LOG_BEHIND, ZN_STATUS_TO_DO, CopyLog());
}

// Renames the trees that the files do not name and that hold something of their own. Whether they may be set
// aside only the operator knows: where the queue manager ran. Nothing gets lost by it.
Steps Decision::SetAside() const
{
    Steps steps;
    for (const ZN_TREE eTree : {ZN_LOG, ZN_DATA})
    {
        const ZNPairFacts& pair = m_facts.aPairs[eTree];
        const ZN_SIDE eCounting = ZNCountingSide(m_facts.eConf, eTree), eOther = Other(eCounting);
        if (!IsThere(pair, eCounting))
            return {};
        if (IsThere(pair, eOther) && !Contains(pair, eCounting) && pair.eTie != ZN_TIE::HELD)
            steps.push_back({ZN_STEP::ASIDE, eTree, eOther, true});
    }
    return steps;
}

void Decision::CannotTell()
{
    m_verdict = {};
    Steps steps = SetAside();
    for (const ZN_TREE eTree : {ZN_LOG, ZN_DATA})
    {
        const ZNPairFacts& pair = m_facts.aPairs[eTree];
        const ZN_SIDE eCounting = ZNCountingSide(m_facts.eConf, eTree);
        if (!steps.empty() || !IsThere(pair, eCounting))
            continue;
        if (pair.aePresence[Other(eCounting)] == ZN_PRESENCE::UNSEEN)
            steps = {{ZN_STEP::LOOK_NAMED}};
        else if (pair.aeRecorded[eCounting] == ZN_RECORDED::OTHER)
            steps = {{ZN_STEP::LOOK_UNRECORDED, eTree, eCounting, true}};
    }
    const bool fOldAsRecorded = IsThere(m_data, ZN_OLD) && IsThere(m_log, ZN_OLD) &&
                                IsAsRecorded(m_data, ZN_OLD) && IsAsRecorded(m_log, ZN_OLD);
    if (m_facts.eConf == ZN_CONF::OLD)
        m_verdict.takeBack = steps;
    else
    {
        m_verdict.finish = steps;
        if (fOldAsRecorded)
            m_verdict.takeBack = {{ZN_STEP::EDIT_PREFIX, ZN_DATA, ZN_OLD, true}};
    }
}

ZNVerdict Decision::Make()
{
    if (m_facts.eLook == ZN_LOOK::UNDER_WAY)
        return {ZN_STATE::UNDER_WAY, ZN_STATUS_UNDER_WAY, ZN_START::NO, {{ZN_STEP::WATCH}}, {}};
    if (m_facts.eLook == ZN_LOOK::UNUSABLE)
        m_verdict.finish = {{ZN_STEP::LOOK}};
    else if (m_facts.eConf == ZN_CONF::OLD)
        WithOldNamed();
    else if (m_facts.eConf == ZN_CONF::BETWEEN)
        WithNewDataAndOldLogNamed();
    else
        WithNewNamed();
    const auto isWithoutSteps = [&] { return m_verdict.finish.empty() && m_verdict.takeBack.empty(); };
    if (isWithoutSteps() && m_verdict.eState != ZN_STATE::MOVED)
        CannotTell();
    if (m_facts.fRuns)
    {
        m_verdict.eStart = ZN_START::RUNS;
        m_verdict.finish = {{ZN_STEP::END}};
        m_verdict.takeBack.clear();
    }
    for (Steps* const pSteps : {&m_verdict.finish, &m_verdict.takeBack})
        if (!pSteps->empty() && pSteps->back().eStep < ZN_STEP::LOOK)
            pSteps->push_back({ZN_STEP::LOOK});
    return std::move(m_verdict);
}
} // namespace

ZN_SIDE ZNCountingSide(ZN_CONF eConf, ZN_TREE eTree)
{
    return eConf == ZN_CONF::NEW || (eConf == ZN_CONF::BETWEEN && eTree == ZN_DATA) ? ZN_NEW : ZN_OLD;
}

ZNVerdict ZNDecide(const ZNFacts& facts)
{
    return Decision(facts).Make();
}
