// Lists trees and reads their files. Opens everything for reading only and lets other programs go on.
#include "znminventory.h"

#include <bcrypt.h>
#include <sddl.h>
#include <aclapi.h>

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <optional>
#include <string_view>

#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmprobe.h"
#include "znmreadfile.h"
#include "znmstanza.h"
#include "znmwalk.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znminventory");

namespace
{
// The system's own provider, which needs not be opened; not in every compiler's headers.
const BCRYPT_ALG_HANDLE SHA256 = std::bit_cast<BCRYPT_ALG_HANDLE>(ULONG_PTR{0x41});

struct HashKind
{
    using Type = BCRYPT_HASH_HANDLE;
    static Type Nothing() noexcept { return nullptr; }
    static void Close(Type h) noexcept { BCryptDestroyHash(h); }
};

class Sha256
{
  public:
    // Takes no more than nLimit bytes.
    explicit Sha256(uint64_t nLimit = UINT64_MAX) : m_nLeft(nLimit)
    {
        m_fFailed = BCryptCreateHash(SHA256, m_hash.Out(), nullptr, 0, nullptr, 0, 0) != 0;
    }
    void Add(const std::string& strBytes)
    {
        const size_t nBytes = static_cast<size_t>(std::min<uint64_t>(strBytes.size(), m_nLeft));
        m_nLeft -= nBytes;
        auto* const pInput = // only read
            reinterpret_cast<unsigned char*>(const_cast<char*>(strBytes.data()));
        m_fFailed =
            m_fFailed || !m_hash || BCryptHashData(m_hash.Get(), pInput, static_cast<ULONG>(nBytes), 0) != 0;
    }
    std::string Finish()
    {
        std::array<unsigned char, 32> digest = {};
        if (m_fFailed || BCryptFinishHash(m_hash.Get(), digest.data(), ULONG{digest.size()}, 0) != 0)
            return {};
        std::string strHex;
        for (const unsigned char byte : digest)
            for (const int nDigit : {byte >> 4, byte & 15})
                strHex += "0123456789abcdef"[nDigit];
        return strHex;
    }

  private:
    Owner<HashKind> m_hash;
    uint64_t m_nLeft;
    bool m_fFailed = false;
};

FileHandle OpenFile(const std::wstring& strPath, DWORD nAccess, DWORD& nError)
{
    FileHandle file = ZNOpenShared(strPath, nAccess, FILE_FLAG_SEQUENTIAL_SCAN);
    nError = file ? DWORD{ERROR_SUCCESS} : GetLastError();
    return file;
}

// The content of a file in pieces; of the data directory's qm.ini without LogPath, which a move changes.
class Content
{
  public:
    Content(const std::wstring& strPath, bool fQmIni) : m_file(OpenFile(strPath, GENERIC_READ, nError))
    {
        BY_HANDLE_FILE_INFORMATION information = {};
        fOtherNames = !m_file || !GetFileInformationByHandle(m_file.Get(), &information) ||
                      information.nNumberOfLinks > 1;
        std::string strAll;
        while (fQmIni && Next())
            strAll += strPiece;
        if (fQmIni)
            m_qmIni = ZNWithoutAttribute(strAll, "Log", "LogPath");
    }
    // False at the end, or where it cannot be read on.
    bool Next()
    {
        if (m_qmIni)
        {
            strPiece = std::exchange(*m_qmIni, {});
            return !strPiece.empty();
        }
        constexpr DWORD PIECE = 1 << 18;
        strPiece.resize(PIECE);
        DWORD nRead = 0;
        if (nError == ERROR_SUCCESS && !ReadFile(m_file.Get(), strPiece.data(), PIECE, &nRead, nullptr))
            nError = GetLastError();
        strPiece.resize(nError == ERROR_SUCCESS ? nRead : 0);
        return !strPiece.empty();
    }

    DWORD nError = ERROR_SUCCESS;
    bool fOtherNames = false;
    std::string strPiece;

  private:
    FileHandle m_file;
    std::optional<std::string> m_qmIni;
};

bool IsQmIni(ZN_TREE eTree, const std::wstring& strBelow)
{
    return eTree == ZN_DATA && ZNIsSameName(strBelow.c_str(), L"qm.ini");
}

bool IsFile(const ZNEntry* pEntry)
{
    return pEntry != nullptr && !pEntry->fDirectory;
}

} // namespace

// --- Single files --------------------------------------------------------------------------------------

std::string ZNSha256(const std::string& strBytes)
{
    Sha256 hash;
    hash.Add(strBytes);
    return hash.Finish();
}

std::wstring ZNSecurityText(const std::wstring& strPath, SECURITY_INFORMATION nWanted)
{
    LocalBlock descriptor;
    LocalText text;
    if (GetNamedSecurityInfoW(strPath.c_str(), SE_FILE_OBJECT, nWanted, nullptr, nullptr, nullptr, nullptr,
                              descriptor.Out()) != ERROR_SUCCESS ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.Get(), SDDL_REVISION_1, nWanted,
                                                              text.Out(), nullptr))
        return {};
    return text.Get();
}

ZN_PRESENCE ZNFindPresence(const std::wstring& strDir, DWORD& nError)
{
    const DWORD nAttributes = GetFileAttributesW(strDir.c_str());
    nError = GetLastError();
    if (nAttributes != INVALID_FILE_ATTRIBUTES)
        return ZN_PRESENCE::THERE;
    if (!ZNIsNotThere(nError))
        return ZN_PRESENCE::UNSEEN;
    // The nearest directory above it that is there must lead to a volume: a mount point is there without one.
    for (std::wstring strUp = strDir; strUp.find(L'\\') != std::wstring::npos;)
    {
        strUp.resize(strUp.find_last_of(L'\\'));
        if (CZNIdentity::Of(strUp + L"\\", nullptr, &nError))
            return ZN_PRESENCE::GONE;
        if (!ZNIsNotThere(nError) || GetFileAttributesW(strUp.c_str()) != INVALID_FILE_ATTRIBUTES)
            break;
    }
    return ZN_PRESENCE::UNSEEN;
}

// --- A tree ----------------------------------------------------------------------------------------------

void CZNReading::AddAndShow(uint64_t nFiles, uint64_t nBytes)
{
    Add(nFiles, nBytes);
    if (m_line.IsDue())
        m_line.Show(L"Reading: " + Text());
}

bool CZNInventory::IgnoreCase::operator()(const std::wstring& strLeft, const std::wstring& strRight) const
{
    return CompareStringOrdinal(strLeft.data(), static_cast<int>(strLeft.size()), strRight.data(),
                                static_cast<int>(strRight.size()), TRUE) == CSTR_LESS_THAN;
}

void CZNInventory::List(const std::wstring& strDirectory)
{
    *this = CZNInventory();
    strDir = strDirectory;
    fLooked = true;
    ePresence = ZNFindPresence(strDir, nError);
    if (ePresence != ZN_PRESENCE::THERE)
        return;
    ZNWalk(
        strDir,
        [&](const ZNVisited& visited) {
            directories.Add(visited.identity, visited.strDir);
            for (const ZNListed& listed : visited.listing.Entries())
            {
                const std::wstring strName = std::wstring(L"\\") + visited.listing.NameOf(listed);
                const ZNEntry entry{listed.IsDirectory(),
                                    listed.IsDirectory() ? 0 : listed.nSize,
                                    listed.IsDirectory() ? 0 : listed.nLastWrite,
                                    listed.nAttributes,
                                    {},
                                    {}};
                if (listed.fLink)
                    links.push_back(visited.strDir + strName);
                nFiles += listed.IsDirectory() ? 0U : 1U;
                nBytes += entry.nSize;
                if (!entries.emplace((visited.strBelow + strName).substr(1), entry).second)
                    findings.Add(ZN_FINDING::NOT_IDENTIFIED, visited.strDir + strName); // differs in case
            }
        },
        findings);
}

void CZNInventory::Read(ZN_TREE eTree, CZNReading& reading)
{
    for (auto& [strBelow, entry] : entries)
    {
        const std::wstring strPath = strDir + L"\\" + strBelow;
        entry.strSddl = ZNSecurityText(strPath, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                                    DACL_SECURITY_INFORMATION);
        if (entry.fDirectory)
            continue;
        Sha256 hash;
        entry.nSize = 0;
        Content content(strPath, IsQmIni(eTree, strBelow));
        while (content.Next())
        {
            hash.Add(content.strPiece);
            entry.nSize += content.strPiece.size();
            reading.AddAndShow(0, content.strPiece.size());
        }
        reading.AddAndShow(1, 0);
        entry.strSha256 = hash.Finish();
        if (content.nError != ERROR_SUCCESS || entry.strSha256.empty())
            findings.Add(ZN_FINDING::NOT_READ, strPath, content.nError);
    }
}

void CZNInventory::Probe(bool fHeld)
{
    for (const auto& [strBelow, entry] : entries)
    {
        DWORD nOpenError = ERROR_SUCCESS;
        const std::wstring strPath = strDir + L"\\" + strBelow;
        if (!entry.fDirectory && !OpenFile(strPath, GENERIC_READ | (fHeld ? DELETE : 0UL), nOpenError))
            findings.Add(ZN_FINDING::NOT_READ, strPath, nOpenError);
    }
}

bool CZNInventory::IsSameAs(const CZNInventory& other) const
{
    return strDir == other.strDir && ePresence == other.ePresence && entries == other.entries &&
           links == other.links && findings.IsEmpty() && other.findings.IsEmpty();
}

const ZNEntry* CZNInventory::Find(const std::wstring& strBelow) const
{
    const auto found = entries.find(strBelow);
    return found != entries.end() ? &found->second : nullptr;
}

size_t CZNInventory::LongestPathIn(const std::wstring& strDirectory) const
{
    size_t nLongest = 0;
    for (const auto& entry : entries)
        nLongest = std::max(nLongest, entry.first.size() + 1 + strDirectory.size());
    return nLongest;
}

// --- Two trees -------------------------------------------------------------------------------------------

namespace
{
class Comparison
{
  public:
    Comparison(ZNPair& pair, ZN_TREE eTree, const CZNInventory* pRecorded, CZNReading& reading)
        : m_pair(pair), m_eTree(eTree), m_pRecorded(pRecorded), m_reading(reading)
    {
    }
    void Make();

  private:
    struct Side
    {
        const ZNEntry* pEntry = nullptr;
        std::unique_ptr<Content> content; // of a file that is read
        std::unique_ptr<Sha256> hash;     // of a file that is recorded
        uint64_t nRead = 0;
    };

    void CompareEntry(const std::wstring& strBelow);
    void Open(const std::wstring& strBelow, Side* pSides, const ZNEntry* pRecorded);
    void ReadBoth(Side& old, Side& now, bool& fSame, bool& fZeros);
    bool Read(Side& side);
    void FindTie(const std::wstring& strBelow, const Side& old, const Side& now, bool fSame);
    void Close(const std::wstring& strBelow, ZN_SIDE eSide, Side& side, const ZNEntry* pRecorded);
    void FindMissing(ZN_SIDE eSide);
    // A configuration file that did not get its place, or a file that a move makes in a destination for a
    // moment.
    bool IsPassing(ZN_SIDE eSide, const std::wstring& strBelow) const
    {
        return (m_eTree == ZN_DATA || eSide == ZN_NEW) && strBelow.find(L'\\') == std::wstring::npos &&
               ZNIsTemporaryName(strBelow);
    }
    ZN_RELATION Relation() const
    {
        return m_fOldInNew && m_fNewInOld ? ZN_RELATION::SAME
               : m_fOldInNew              ? ZN_RELATION::OLD_IN_NEW
               : m_fNewInOld              ? ZN_RELATION::NEW_IN_OLD
               : m_fNewCut                ? ZN_RELATION::CUT
                                          : ZN_RELATION::APART;
    }
    std::wstring Path(ZN_SIDE eSide, const std::wstring& strBelow) const
    {
        return m_pair.aTrees[eSide].strDir + L"\\" + strBelow;
    }

    ZNPair& m_pair;
    ZN_TREE m_eTree;
    const CZNInventory* m_pRecorded;
    CZNReading& m_reading;
    bool m_fOldInNew = true, m_fNewInOld = true, m_fNewCut = true;
};

bool Comparison::Read(Side& side)
{
    if (!side.content || !side.content->Next())
        return false;
    side.nRead += side.content->strPiece.size();
    if (side.hash)
        side.hash->Add(side.content->strPiece);
    m_reading.AddAndShow(0, side.content->strPiece.size());
    return true;
}

void Comparison::Open(const std::wstring& strBelow, Side* pSides, const ZNEntry* pRecorded)
{
    const bool fFiles = IsFile(pSides[ZN_OLD].pEntry) && IsFile(pSides[ZN_NEW].pEntry);
    for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
    {
        if (!IsFile(pSides[eSide].pEntry) || !(fFiles || IsFile(pRecorded)))
            continue;
        pSides[eSide].content = std::make_unique<Content>(Path(eSide, strBelow), IsQmIni(m_eTree, strBelow));
        if (IsFile(pRecorded))
            pSides[eSide].hash = std::make_unique<Sha256>(pRecorded->nSize);
    }
}

// fSame: the bytes that both have are the same. fZeros: behind those the new file has nothing but zeros.
void Comparison::ReadBoth(Side& old, Side& now, bool& fSame, bool& fZeros)
{
    for (bool fOld = true, fNew = true; fOld || fNew;)
    {
        fOld = fOld && Read(old);
        fNew = fNew && Read(now);
        const std::string_view oldPiece = fOld ? old.content->strPiece : std::string_view(),
                               newPiece = fNew ? now.content->strPiece : std::string_view();
        const size_t nCommon = std::min(oldPiece.size(), newPiece.size());
        size_t nSame = 0;
        while (fSame && nSame < nCommon && oldPiece[nSame] == newPiece[nSame])
            ++nSame;
        fSame = fSame && nSame == nCommon;
        fZeros = fZeros && (fSame || newPiece.find_first_not_of('\0', nSame) == std::string_view::npos);
    }
}

void Comparison::CompareEntry(const std::wstring& strBelow)
{
    Side aSides[ZN_SIDES];
    Side &old = aSides[ZN_OLD], &now = aSides[ZN_NEW];
    old.pEntry = m_pair.aTrees[ZN_OLD].Find(strBelow);
    now.pEntry = m_pair.aTrees[ZN_NEW].Find(strBelow);
    const ZNEntry* const pRecorded = m_pRecorded != nullptr ? m_pRecorded->Find(strBelow) : nullptr;
    const bool fBoth = old.pEntry != nullptr && now.pEntry != nullptr;
    const bool fFiles = IsFile(old.pEntry) && IsFile(now.pEntry);
    bool fSame = !fBoth || old.pEntry->fDirectory == now.pEntry->fDirectory, fZeros = fFiles;
    Open(strBelow, aSides, pRecorded);
    ReadBoth(old, now, fSame, fZeros);

    m_fOldInNew = m_fOldInNew && fSame && now.pEntry != nullptr && old.nRead <= now.nRead;
    m_fNewInOld = m_fNewInOld && fSame && old.pEntry != nullptr && now.nRead <= old.nRead;
    m_fNewCut = m_fNewCut && (fSame || fZeros) && old.pEntry != nullptr && now.nRead <= old.nRead;
    const ZN_SIDE eLacking = now.pEntry == nullptr ? ZN_NEW : ZN_OLD;
    if (!fBoth && m_pair.aTrees[eLacking].ePresence == ZN_PRESENCE::THERE)
        m_pair.differences.Add(ZN_FINDING::MISSING, Path(eLacking, strBelow));
    else if (fBoth && !fSame)
        m_pair.differences.Add(fFiles ? ZN_FINDING::OTHER_CONTENT : ZN_FINDING::OTHER_KIND,
                               Path(ZN_NEW, strBelow));
    if (fFiles)
        FindTie(strBelow, old, now, fSame && old.nRead == now.nRead);
    for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
        if (aSides[eSide].pEntry != nullptr)
            Close(strBelow, eSide, aSides[eSide], pRecorded);
}

// Two paths may lead to one file, also by a link that the system does not show as one.
void Comparison::FindTie(const std::wstring& strBelow, const Side& old, const Side& now, bool fSame)
{
    ZN_TIE& eTie = m_pair.facts.eTie;
    const auto identity = [&](ZN_SIDE eSide) { return CZNIdentity::Of(Path(eSide, strBelow)); };
    if (old.content->fOtherNames || now.content->fOtherNames)
        eTie = std::max(eTie, ZN_TIE::LINKED);
    else if (const auto oldFile = fSame ? identity(ZN_OLD) : std::nullopt,
             newFile = fSame ? identity(ZN_NEW) : std::nullopt;
             fSame && (!oldFile || !newFile || oldFile->IsSame(*newFile)))
    {
        eTie = ZN_TIE::HELD;
        m_pair.ties.Add(ZN_FINDING::SOURCE_OVERWRITTEN, Path(ZN_NEW, strBelow));
    }
}

// Says what was found of the entry itself, and how it stands to the record.
void Comparison::Close(const std::wstring& strBelow, ZN_SIDE eSide, Side& side, const ZNEntry* pRecorded)
{
    ZN_RECORDED& eRecorded = m_pair.facts.aeRecorded[eSide];
    m_reading.AddAndShow(IsFile(side.pEntry) ? 1U : 0U, 0);
    if (side.content && side.content->nError != ERROR_SUCCESS)
        m_pair.aTrees[eSide].findings.Add(ZN_FINDING::NOT_READ, Path(eSide, strBelow), side.content->nError);
    if (m_pRecorded == nullptr)
        return;
    if (pRecorded != nullptr &&
        (pRecorded->fDirectory != side.pEntry->fDirectory ||
         (side.hash && (side.nRead < pRecorded->nSize || side.hash->Finish() != pRecorded->strSha256))))
    {
        eRecorded = ZN_RECORDED::OTHER;
        m_pair.aUnlike[eSide].Add(ZN_FINDING::OTHER_CONTENT, Path(eSide, strBelow));
    }
    else if (pRecorded == nullptr || side.nRead > pRecorded->nSize)
        eRecorded = std::max(eRecorded, ZN_RECORDED::GREW);
}

void Comparison::FindMissing(ZN_SIDE eSide)
{
    for (const auto& entry : m_pRecorded->entries)
        if (!IsPassing(ZN_OLD, entry.first) && m_pair.aTrees[eSide].Find(entry.first) == nullptr)
        {
            m_pair.facts.aeRecorded[eSide] = ZN_RECORDED::OTHER;
            m_pair.aUnlike[eSide].Add(ZN_FINDING::MISSING, Path(eSide, entry.first));
        }
}

void Comparison::Make()
{
    ZNPairFacts& facts = m_pair.facts;
    const CZNInventory& old = m_pair.aTrees[ZN_OLD];
    for (ZN_RECORDED& eRecorded : facts.aeRecorded)
        eRecorded = m_pRecorded != nullptr ? ZN_RECORDED::IS : ZN_RECORDED::NONE;
    for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
        for (const auto& entry : m_pair.aTrees[eSide].entries)
            if (!IsPassing(eSide, entry.first) && (eSide == ZN_OLD || old.Find(entry.first) == nullptr))
                CompareEntry(entry.first);
    for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
    {
        CZNInventory& tree = m_pair.aTrees[eSide];
        if (m_pRecorded != nullptr)
            FindMissing(eSide);
        if (!tree.links.empty())
            facts.eTie = std::max(facts.eTie, ZN_TIE::LINKED);
        if (!tree.findings.IsEmpty())
            tree.ePresence = ZN_PRESENCE::UNSEEN;
        facts.aePresence[eSide] = tree.ePresence;
    }
    facts.eRelation = Relation();
}
} // namespace

void ZNPair::Compare(ZN_TREE eTree, const CZNInventory* pRecorded, CZNReading& reading)
{
    Comparison(*this, eTree, pRecorded, reading).Make();
}
