// CZNMovedTrees: both trees of a move. Looks for everything that would let the copy or the deletion destroy
// data, and holds what was proved of both copies. Changes nothing on disk but for probe files of its own.
#pragma once

#include <optional>

#include "znmmark.h"
#include "znmpair.h"
#include "znmplaces.h"

class CZNMovedTrees
{
  public:
    explicit CZNMovedTrees(const ZNPlaces& places);

    // Before the copy, in this order. Each returns false with findings.
    //
    // Keeps other moves out of both destination directories, which must exist, as long as the object lives.
    bool Claim(CZNFindings& findings);
    // Looks at both old trees and at what lies in the destinations, which need not exist. Changes nothing.
    bool Look(CZNFindings& findings);
    // Makes a file in each destination and asks for it in every old directory that the look has found: of
    // some file systems nothing else tells that a destination lies in an old tree.
    bool Probe(CZNFindings& findings) const;

    // After a copy: data first.
    bool ProveData(CZNFindings& findings);
    bool ProveLog(CZNFindings& findings);

    // Whether both pairs are still as proved. The log is looked at first: the data, which is deleted first,
    // is looked at last.
    bool AreAsProved(bool fConfigurationChanged, CZNFindings& findings) const;
    // Whether the log pair still is, once the old data tree was deleted.
    bool IsLogAsProved(CZNFindings& findings) const;

    const CZNPair& Data() const { return m_data; }
    const CZNPair& Log() const { return m_log; }

  private:
    class Overlaps;
    bool CheckQmIni(CZNFindings& findings) const;
    const CZNIdentity* Configuration() const { return m_configuration ? &*m_configuration : nullptr; }

    ZNPlaces m_places;
    CZNPair m_data, m_log;
    CZNMark m_dataMark, m_logMark;
    std::optional<CZNIdentity> m_configuration;
};
