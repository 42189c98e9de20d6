// Electrodes and electrode groups.
//
// An electrode group is one physical array of contacts (a grid of up to 8
// columns, or a single column): a bracketed name such as "[G]", a type, a
// number of rows and columns, a table of the grid positions that carry a
// contact and a numbering rule.  The group builds its electrodes itself; each
// is named from the group's base name and its contact number ("G1", "G2", ...)
// and keeps its 1-based grid position (x = row, y = column).
//
// Types and row limits: 0 grid (8 rows), 1 strip (12 rows, column 0 only),
// 2 strip (18 rows, column 0 only), 3 depth shaft (8 rows, every row is a
// contact).  Argument checks assert with the source name "ElecGroup".
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Archive.h"
#include "platform/Collections.h"
#include "platform/Object.h"
#include "platform/Types.h"

class CElectrode : public CObject {
    DECLARE_SERIAL(CElectrode)
public:
    CElectrode();
    CElectrode(const char* name, const CPoint* position);
    CElectrode(const CElectrode& other);
    ~CElectrode() override;

    const char* GetName() const { return m_strName.c_str(); }
    void SetName(const char* name);
    const CPoint* GetPosition() const { return &m_ptPosition; }
    void SetPosition(const CPoint* position);

    CElectrode& operator=(const CElectrode& other);
    int operator==(const CElectrode& other) const;
    int operator!=(const CElectrode& other) const { return !(*this == other); }

    void Serialize(CArchive& ar) override;

private:
    CString m_strName;
    CPoint m_ptPosition;
};

class CElecGroup : public CObject {
    DECLARE_SERIAL(CElecGroup)
public:
    static constexpr int kMaxStatusRows = 18;
    static constexpr int kMaxCols = 8;
    using StatusTable = int[kMaxStatusRows][kMaxCols];

    CElecGroup();
    // name, type, rows, columns, status table, inter-distance, contact size,
    // colour, name sequence, origin point.
    CElecGroup(const char* name, int type, int numRow, int numCol, const int (*status)[18][8], double interDistance,
               double contactSize, unsigned long color, int nameSequence, int originPoint);
    CElecGroup(const CElecGroup& other);
    ~CElecGroup() override;

    // A bracketed name: non-empty, begins with '[' and ends with ']'.
    static int IsElecGroup(const char* name);
    // True when candidate equals (without regard to case) baseName followed by
    // a contact number from 1 to rows x columns, i.e. a name that a group of
    // that base name and size could produce.
    static int CheckNameReservedInGroup(const char* baseName, const char* candidate, int numRow, int numCol);
    // Row limit of a group type (8, 12, 18, 8), 0 for an unknown type.
    static int GetRowLimit(int type);

    int GetElectrodeCount() const { return m_oaElectrodes.GetSize(); }
    // An index out of range raises CInvalidArgException.
    const CElectrode* GetElectrodeAt(int index) const;
    int IsElectrodeExist(const char* name) const;
    int IsElectrodeIncluded(int row, int col) const;
    const int (*GetElectrodeStatusArray() const)[18][8] { return &m_nElecStatus; }

    const char* GetName() const { return m_strName.c_str(); }
    // The name without its brackets: the prefix of the electrode names.
    CString GetBaseName() const;
    int GetNameSequence() const { return m_nNameSequence; }
    int GetType() const { return m_nType; }
    int GetNumRow() const { return m_nNumRow; }
    int GetNumCol() const { return m_nNumCol; }
    double GetInterDistance() const { return m_dInterDistance; }
    double GetContactSize() const { return m_dContactSize; }
    unsigned long GetColor() const { return m_crColor; }
    int GetOriginPoint() const { return m_nOriginPoint; }

    // These rebuild the electrodes.
    void SetName(const char* name);
    void SetNameSequence(int nameSequence);
    void SetOriginPoint(int originPoint);
    void SetGroupParams(int type, int numRow, int numCol, const int (*status)[18][8]);
    // These do not.
    void SetInterDistance(double d);
    void SetContactSize(double d);
    void SetColor(unsigned long color) { m_crColor = static_cast<DWORD>(color); }

    CElecGroup& operator=(const CElecGroup& other);
    // Compares everything but the status table.
    int operator==(const CElecGroup& other) const;
    int operator!=(const CElecGroup& other) const { return !(*this == other); }

    void Serialize(CArchive& ar) override;

private:
    int BuildElectrodes();
    int NameMapping(int row, int col, int mode, int originPoint);
    void DeleteElectrodes();
    void AppendElectrode(int number, int row, int col);

    CString m_strName = "[DefGp]";
    int m_nNameSequence = 1;
    int m_nOriginPoint = 1;
    int m_nType = 0;
    int m_nNumRow = 1;
    int m_nNumCol = 1;
    double m_dInterDistance = 2.0;
    double m_dContactSize = 1.0;
    DWORD m_crColor = 255;
    int m_nElecStatus[18][8];
    CObArray m_oaElectrodes;  // owned CElectrode*
};

CArchive& operator>>(CArchive& ar, CElectrode*& electrode);
CArchive& operator>>(CArchive& ar, CElecGroup*& group);
#pragma GCC visibility pop
