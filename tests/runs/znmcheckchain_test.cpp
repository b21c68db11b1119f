// The advice of tarvelcheck.exe, executed as it is printed, brings the queue manager back with every byte.
#include "checked.h"

#include <random>

namespace
{
// A queue manager that is moved to and fro, and what it has written since.
class Chain : public Checked
{
  public:
    explicit Chain(unsigned nSeed) : m_random(nSeed) { data.erase(L"qm.ini"); }

    void Run()
    {
        size_t nFrom = 0, nTo = 1;
        for (int nLeg = 0; nLeg < 2; ++nLeg)
        {
            const std::wstring strFrom = PLACES[nFrom], strTo = PLACES[nTo];
            strMove = MoveWords(L"QM1", strTo + L"data", strTo + L"log");
            strOldPlaces = L" /od " + Quoted(Dir(strFrom, true)) + L" /ol " + Quoted(Dir(strFrom, false));
            ran.clear();
            fRan = fRecord = false;
            if (Any(2) == 0)
                Do("record");
            for (size_t n = 2 + Any(4); n > 0; --n)
                Disturb(strTo);
            const bool fFinish = Any(2) == 0;
            EXPECT_TRUE(Recover(fFinish ? FINISH : TAKE_BACK) || Recover(fFinish ? TAKE_BACK : FINISH))
                << After().strOut;
            EXPECT_TRUE(IsWhole(Named().first, data) && IsWhole(Named().second, log));
            if (Named().first == Dir(strTo, true))
                nFrom = std::exchange(nTo, 3 - nFrom - nTo);
        }
    }

  private:
    static constexpr const wchar_t* PLACES[] = {L"old", L"new", L"third"};
    static constexpr const char* FAULTS[] = {"SHFileOperationW:2:o:7c:0", "SetNamedSecurityInfoW:3:a:5:5",
                                             "xcsIniUtilWrite:1:o:1:0",   "xcsIniUtilWrite:2:o:1:0",
                                             "DeleteFileW:7:o:0:20",      "RemoveDirectoryW:4:o:0:91"};

    size_t Any(size_t nBelow) { return m_random() % nBelow; }
    fs::path Dir(const std::wstring& strPlace, bool fData) const
    {
        return fData ? root / (strPlace + L"data\\qmgrs\\QM!1") : root / (strPlace + L"log\\QM!1");
    }

    // The directories that the files name.
    std::pair<fs::path, fs::path> Named() const
    {
        const auto value = [](const fs::path& file, const char* pszPattern) {
            const std::string strText = ReadAll(file);
            std::smatch match;
            std::regex_search(strText, match, std::regex(pszPattern));
            return fs::path(match[1].str());
        };
        const fs::path dataDir = value(work / "zns.ini", "Name=QM1[^]*?Prefix=(.*)") / "qmgrs\\QM!1";
        return {dataDir, value(dataDir / "qm.ini", "LogPath=(.*)").parent_path()};
    }

    // The queue manager runs: it adds to files, makes one and writes over one.
    void Write()
    {
        const auto [dataDir, logDir] = Named();
        ran.insert({dataDir.string(), logDir.string()});
        fRan = true;
        const std::string strMore = "went on " + std::to_string(Any(1000));
        data[L"a"] += strMore;
        log[L"ctl"] += strMore;
        log[L"active\\" + std::to_wstring(Any(1000))] = strMore;
        if (Any(3) == 0)
            log[L"active\\log1"].replace(0, strMore.size(), strMore);
        WriteAll(dataDir / "a", data[L"a"]);
        for (const auto& [strName, strContent] : log)
            if (strContent != "<dir>")
                WriteAll(logDir / strName, strContent);
    }

    void Disturb(const std::wstring& strTo)
    {
        const RunResult said = After();
        const fs::path copied = Dir(strTo, false);
        const auto says = [&](const char* psz) { return said.strOut.find(psz) != std::string::npos; };
        const size_t nWhat = Any(8);
        if ((says("in between") && Any(2) == 0) ||
            (nWhat > 5 && (says("manager: yes") || says("in between"))))
            Write();
        else if (nWhat == 5)
        {
            Follow(said.strOut, Any(2) == 0 ? FINISH : TAKE_BACK, static_cast<int>(Any(4)));
            if (Any(2) == 0 && fs::exists(copied) && Named().second != copied &&
                !ran.contains(copied.string()))
                WriteAll(copied / "active\\log1", std::string(99, 'l') + std::string(Any(2) * 200, '\0'));
        }
        else if (nWhat < 5)
        {
            const std::string strFault =
                nWhat < 2 ? Fault("*", 1 + Any(900), "k:0:0") : FAULTS[Any(std::size(FAULTS))];
            if (Named().first != Dir(strTo, true)) // otherwise it refuses
                ran.clear();
            Installation::Run(strMove, strFault);
        }
    }

    std::mt19937 m_random;
};
} // namespace

// Moves that fail or are killed, advice that is followed in part, copies that are cut off, runs in between
// and a third place: nothing gets lost, and there is always a way on. ZN_CHAINS: the first chain and how
// many.
TEST(CheckAfter, ChainsEndWithEveryByte)
{
    unsigned nFirst = 1, nChains = 12;
    if (const char* const pszChains = std::getenv("ZN_CHAINS"))
        std::sscanf(pszChains, "%u %u", &nFirst, &nChains);
    for (unsigned n = nFirst; n < nFirst + nChains; ++n)
    {
        SCOPED_TRACE(n);
        Chain(n).Run();
    }
}
