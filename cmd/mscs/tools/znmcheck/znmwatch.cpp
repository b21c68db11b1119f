// Follows a move by its marks and by listings. Must never hold a directory open that the move is deleting.
#include "znmwatch.h"

#include <algorithm>
#include <iterator>

#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmadvice.h"
#include "znmmark.h"
#include "znmwalk.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmwatch");

namespace
{
constexpr const wchar_t* PHASES[] = {L"looking at the queue manager", L"ending the queue manager",
                                     L"creating directories",         L"copying data",
                                     L"setting rights on the data",   L"copying the log",
                                     L"setting rights on the log",    L"changing the configuration",
                                     L"deleting the old trees"};
static_assert(std::size(PHASES) == static_cast<size_t>(ZN_PHASE::DELETING) + 1);

struct Size
{
    explicit Size(const std::wstring& strDir)
    {
        CZNFindings unseen; // comes and goes while the move runs
        const auto visit = [&](const ZNVisited& visited) {
            for (const ZNListed& entry : visited.listing.Entries())
            {
                nFiles += entry.IsDirectory() ? 0U : 1U;
                nBytes += entry.IsDirectory() ? 0 : entry.nSize;
            }
        };
        ZNWalk(strDir, visit, unseen);
    }
    uint64_t nFiles = 0, nBytes = 0;
};

class Watch
{
  public:
    explicit Watch(const ZNCheckWords& words) : m_words(words), m_survey(words) {}

    ZN_STATUS Take()
    {
        if (!m_survey.fMoving)
        {
            ZNPrintLine(m_survey.fKnown ? L"No move is under way."
                                        : L"zns.ini has no queue manager of this name");
            return m_survey.fKnown ? ZN_STATUS_OK : ZN_STATUS_CANNOT_TELL;
        }
        while (m_survey.IsMoving())
            ShowAndWait();
        m_line.Show(L"");
        ZNPrintLine(L"The move is over, after " + ZNFormatSeconds(m_whole.Seconds()) +
                    L" of watching. Now look how it ended:");
        const bool fOld = !ZNIsSamePlace(m_survey.aNow[ZN_DATA].c_str(), m_survey.aNew[ZN_DATA].c_str());
        ZNPrintLookAfter(m_words, fOld ? m_survey.aNow[ZN_DATA] : L"", fOld ? m_survey.aNow[ZN_LOG] : L"");
        return ZN_STATUS_OK;
    }

  private:
    void ShowAndWait();
    ZN_PHASE FindPhase() const;

    const ZNCheckWords& m_words;
    CZNSurvey m_survey;
    CZNStatusLine m_line{STD_OUTPUT_HANDLE};
    CZNProgress m_whole, m_phase;
    ZN_PHASE m_ePhase = ZN_PHASE::LOOKING;
};

ZN_PHASE Watch::FindPhase() const
{
    const auto isIn = [&](ZN_PHASE ePhase) {
        return std::ranges::any_of(m_survey.aMarks, [&](const std::wstring& strMark) {
            return !strMark.empty() && CZNMark::IsSet(ZNPhaseMark(strMark, ePhase));
        });
    };
    auto ePhase = ZN_PHASE::DELETING;
    while (ePhase != ZN_PHASE::LOOKING && !isIn(ePhase))
        ePhase = static_cast<ZN_PHASE>(static_cast<int>(ePhase) - 1);
    return ePhase;
}

void Watch::ShowAndWait()
{
    constexpr uint64_t CONSOLE_INTERVAL = 500, INTERVAL = 10'000, POLL = 100; // milliseconds
    constexpr uint64_t SHARE = 20; // listings take no more than one part in so many of the time
    const uint64_t nBegin = GetTickCount64();
    const ZN_PHASE ePhase = FindPhase();
    const bool fData = ePhase == ZN_PHASE::COPYING_DATA, fLog = ePhase == ZN_PHASE::COPYING_LOG;
    const ZN_TREE eTree = fData ? ZN_DATA : ZN_LOG;
    std::wstring strText = PHASES[static_cast<int>(ePhase)];
    if (fData || fLog)
    {
        const Size copied(m_survey.aNew[eTree]);
        if (ePhase != m_ePhase)
        {
            const Size old(m_survey.aNow[eTree]);
            m_phase = CZNProgress();
            m_phase.Expect(old.nFiles, old.nBytes);
            m_phase.Begin(copied.nBytes);
        }
        m_phase.Set(copied.nFiles, copied.nBytes);
        strText += L": " + m_phase.Text();
    }
    m_ePhase = ePhase;
    strText += L" (" + ZNFormatSeconds(m_whole.Seconds()) + L" watched)";
    if (m_line.IsConsole())
        m_line.Show(strText);
    else
        ZNPrintLine(strText);
    const uint64_t nNow = GetTickCount64();
    const uint64_t nNext =
        nNow + std::max(m_line.IsConsole() ? CONSOLE_INTERVAL : INTERVAL, (nNow - nBegin) * (SHARE - 1));
    while (GetTickCount64() < nNext && m_survey.IsMoving())
        Sleep(POLL);
}
} // namespace

ZN_STATUS ZNWatch(const ZNCheckWords& words)
{
    return Watch(words).Take();
}
