// Whole runs of tarvelcheck.exe before a move, and its words.
#include "checked.h"

using testing::HasSubstr;

TEST(CheckBefore, FindsWhatStopsAMove)
{
    const std::string strLong =
        "oldlog\\QM!1\\" + std::string(230 - fs::temp_directory_path().string().size(), 'n');
    const std::string strUsed = "would end with: " + Message(42, CP_UTF8);
    struct Case
    {
        const char* pszSays;
        Change change = {};
        DWORD nStatus = 1;
        const wchar_t *pszData = L"newdata", *pszLog = L"newlog"; // the destinations below the root
        const wchar_t *pszName = L"QM1", *pszMore = L"";
        const char* pszFault = "";
        bool fHeld = false; // by another program
    };
    const char* const pszLinked = "other\\qmgrs\\QM0";
    const Case cases[] = {
        {"Nothing stops the move", {}, 0},
        {"8 files, 9,1", {}, 0, L"newdata", L"newlog", L"QM1", L" /record r"},
        {.pszSays = "zns.ini has none named QM9", .pszName = L"QM9"},
        {.pszSays = strUsed.c_str(), .pszData = L"olddata"},
        {.pszSays = "is the old directory", .pszData = L"OLDDATA"},
        {.pszSays = "lies in an old tree", .pszLog = L"olddata\\qmgrs\\QM!1\\x"},
        {.pszSays = "both destinations are one directory", .pszData = L"one", .pszLog = L"one\\qmgrs"},
        {"both trees would be copied into",
         {.pszWrite = "olddata\\qmgrs\\QM!1\\s\\QM!1\\x"},
         1,
         L"newdata",
         L"newdata\\qmgrs\\QM!1\\s"},
        {.pszSays = "reserved name", .pszData = L"a\\con"},
        {.pszSays = "the volume of Y:\\x", .pszData = L"Y:\\x"},
        {"is a file or cannot", {.pszWrite = "newdata"}},
        {"that the old tree does not have. The", {.pszWrite = "newlog\\QM!1\\theirs"}},
        {"that the old tree does not have. The", {.pszWrite = "newlog\\QM!1\\ctl"}},
        {"it will be overwritten", {"", "newlog\\QM!1\\ctl", "lll"}, 0},
        {"is read-only",
         {.pszWrite = "olddata\\qmgrs\\QM!1\\qm.ini", .nAttributes = FILE_ATTRIBUTE_READONLY}},
        {"LogPath is missing", {.pszWrite = "olddata\\qmgrs\\QM!1\\qm.ini"}},
        {"multi-instance", {.pszInZnsIni = "Name=QM1", .pszInstead = "Name=QM1\n   MultiInstance=Yes"}},
        {"links: ", {.pszLink = "oldlog\\QM!1\\l", .pszTarget = "bystander"}},
        {"manager QM0 lies in", {.pszLink = pszLinked, .pszTarget = "olddata\\qmgrs\\QM!1\\s"}},
        {"manager QM0 lies in",
         {"", "", "", 0, pszLinked, "olddata\\qmgrs\\QM!1\\s", "# kept", "\xEF\xBB\xBFx:\r\n y = z"}},
        {"directory of the queue manager QM0", {.pszLink = pszLinked, .pszTarget = "newdata\\qmgrs\\QM!1"}},
        {"directory of the queue manager QM0", {.pszLink = pszLinked, .pszTarget = "newlog"}},
        {"too long in the new place",
         {.pszWrite = strLong.c_str()},
         1,
         L"newdata",
         L"much-longer-than-before"},
        {.pszSays = "file cannot be read: ", .fHeld = true},
        {.pszSays = "was not written. The file", .pszMore = L" /record r", .pszFault = "ReadFile:9:o:0:5"},
        {.pszSays = "cannot be made anew", .pszMore = L" /record bystander\\file"},
        {.pszSays = "lie in a tree that moves", .pszMore = L" /record oldlog\\QM!1\\r"},
        {.pszSays = "does not run elevated", .nStatus = 0, .pszFault = "OpenProcessToken:1:o:0:5"},
        {.pszSays = "net localgroup znm /add", .pszFault = "LookupAccountNameW:1:o:0:534"},
        {.pszSays = "not of level", .pszFault = "xcsCheckConsistency:1:o:1:0"},
        {.pszSays = "they do not start", .pszFault = "xcsInitializeEx:1:o:1:0"},
        {.pszSays = "ends with status 71", .pszFault = "xcsCheckAuthorization:1:o:40806177:0"},
        {.pszSays = "ends with status 119", .pszFault = "xcsCheckAuthorization:1:o:40806178:0"},
        {.pszSays = "keeps no access lists", .pszFault = "xcsVolumeSupportsSecurity:1:o:40806178:0"},
        {.pszSays = "have named streams, which",
         .nStatus = 0,
         .pszFault = "GetVolumeInformationW:1:o:1:0;FindFirstStreamW:1:o:10:0"}, // of a volume without
        {.pszSays = "make room, or", .pszFault = "GetDiskFreeSpaceExW:1:o:1:0"}, // none is free
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.Apply(c.change);
        const Snapshot before = TakeSnapshot(zn.root);
        FileHandle held = c.fHeld ? Hold(zn.oldData / "a") : FileHandle();
        const RunResult said =
            zn.Look(L"before " + zn.MoveWords(c.pszName, c.pszData, c.pszLog) + c.pszMore, c.pszFault);
        held.Close();
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        fs::remove(zn.root / "r");
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}

TEST(CheckWords, AreThoseOfTheCommand)
{
    const struct
    {
        const wchar_t* pszWords;
        DWORD nStatus;
        const char* pszSays;
    } cases[] = {
        {L"", 5, "One of the words"},
        {L"after", 5, "is missing: /m"},
        {L"after /m QM1 /dd C:\\a", 5, "is missing: /ld"},
        {L"after /m QM1 /dd C:\\a /ld C:\\b /x y", 5, "not expected: /x"},
        {L"after /m QM1 /m QM1 /dd C:\\a /ld C:\\b", 5, "not expected: /m"},
        {L"after again /m QM1 /dd C:\\a /ld C:\\b", 5, "not expected: again"},
        {L"after /m /dd C:\\a /ld C:\\b", 5, "after /m"},
        {L"after /m QM1 /dd C:\\a /ld C:\\b /od x", 5, "below a root: x"},
        {L"before /m QM1 /dd C:\\a /ld C:\\b /od C:\\x", 5, "are for after"},
        {L"-LD C:/b/ -m QM9 AFTER -dd C:\\a", 3, "no queue manager of this name"},
        {L"watch /m QM1 --HELP", 0, "Usage: tarvelcheck before"},
        {L"/?", 0, "Usage: tarvelcheck before"},
    };
    Checked zn;
    for (const auto& c : cases)
    {
        const RunResult said = zn.Look(c.pszWords);
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
    }
    const std::string strHead = zn.Look(L"watch " + zn.MoveWords()).strOut;
    EXPECT_TRUE(std::regex_search(
        strHead, std::regex("^tarvelcheck [0-9.]+, (20..-..-.. ..:..:..) UTC, .* local time, "
                            "machine .+, user .+\r\nWords: watch /m QM1")))
        << strHead;
}
