// Filter definitions: for each kind of channel, which digital filter ("IIR"
// or "FIR" with an order and cut-offs) to wrap around a derived channel's
// formula.  The installation's definitions form one shared filter set kept
// in "default.flt" in the user's folder.
//
// Archive forms:
//   CFilter     name (string), filter type (WORD), item count, then per item:
//               trace frequency (WORD), trace type (WORD), trace label (string),
//               filter class (WORD), filter order (WORD), cut-off 1 (float),
//               cut-off 2 (float)
//   CFilterSet  version (WORD, 3), object count, then each CFilter as an
//               archived object
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include <memory>
#include <vector>

#include "platform/Object.h"
#include "platform/Types.h"

class CFilter : public CObject {
    DECLARE_SERIAL(CFilter)
public:
    // Filter types (the FIR / IIR type codes).
    enum : WORD { typeLowPass = 1, typeHighPass = 2, typeBandPass = 3, typeBandStop = 4 };
    // Filter classes of an item.
    enum : WORD { classIIR = 1, classFIR = 2 };
    // What GetFilterSelection returns when no item applies.
    static constexpr UINT noSelection = 0xFFFFFFFFu;

    struct Item {
        WORD traceFreq = 0;   // sampling frequency of the channels, Hz
        WORD traceType = 0;   // channel type; 0 any type
        CString traceLabel;   // channel label; empty any label
        WORD filterClass = 0; // classIIR or classFIR
        WORD filterOrder = 0; // IIR order or FIR half length
        float cut1 = 0.0f;    // low cut-off, Hz
        float cut2 = 0.0f;    // high cut-off, Hz
    };

    CFilter() = default;
    CFilter(const CFilter& other);
    CFilter& operator=(const CFilter& other);

    void SetName(const char* name) { m_strName = name ? name : ""; }
    const CString& GetName() const { return m_strName; }
    void SetFilterType(WORD type) { m_wFilterType = type; }
    WORD GetFilterType() const { return m_wFilterType; }
    UINT GetNumItems() const { return static_cast<UINT>(m_items.size()); }

    // Editing: 1 when done; 0 when another item has the same trace
    // frequency, trace type and trace label (ignoring case), items unchanged.
    int Add(WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass, WORD filterOrder,
            float cut1, float cut2);
    int Insert(UINT index, WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass,
               WORD filterOrder, float cut1, float cut2);
    int Replace(UINT index, WORD traceFreq, WORD traceType, const char* traceLabel, WORD filterClass,
                WORD filterOrder, float cut1, float cut2);
    // 1 when done; an index out of range asserts and returns 0.
    int Delete(UINT index);

    // Item accessors; an index out of range asserts and throws
    // CInvalidArgException.
    WORD GetTraceFreq(UINT index) const { return ItemAt(index).traceFreq; }
    WORD GetTraceType(UINT index) const { return ItemAt(index).traceType; }
    CString GetTraceLabel(UINT index) const { return ItemAt(index).traceLabel; }
    WORD GetFilterClass(UINT index) const { return ItemAt(index).filterClass; }
    WORD GetFilterOrder(UINT index) const { return ItemAt(index).filterOrder; }
    float GetFilterCut1(UINT index) const { return ItemAt(index).cut1; }
    float GetFilterCut2(UINT index) const { return ItemAt(index).cut2; }

    // The index of the item that applies to a channel, or noSelection.
    UINT GetFilterSelection(UINT traceFreq, UINT traceType, const char* traceLabel) const;
    // The formula wrapped in the selected item's filter function, or the
    // formula unchanged when no item applies.
    CString GetFilteredFormula(const char* formula, UINT traceFreq, UINT traceType,
                               const char* traceLabel) const;

    void Serialize(CArchive& ar) override;

private:
    const Item& ItemAt(UINT index) const;

    CString m_strName;
    WORD m_wFilterType = 0;
    std::vector<Item> m_items;
};

class CFilterSet : public CObject {
    DECLARE_SERIAL(CFilterSet)
public:
    // The version written at the head of the archive; any other is refused.
    static constexpr WORD kVersion = 3;

    CFilterSet() = default;
    CFilterSet(const CFilterSet& other) : CObject() { *this = other; }
    CFilterSet& operator=(const CFilterSet& other);

    // The shared set, made and refreshed from "default.flt" on first use.
    static CFilterSet& GetInstance();

    UINT GetNumFilters() const { return static_cast<UINT>(m_filters.size()); }
    // An index out of range asserts and throws CInvalidArgException.
    CFilter& operator[](UINT index);
    const CFilter& operator[](UINT index) const;
    // Appends a new empty filter, owned by the set.
    CFilter* AddNew();
    // 1 when done; an index out of range asserts and returns 0.
    int DeleteAt(UINT index);
    void DeleteAll() { m_filters.clear(); }

    // Reads "default.flt" from the user's folder: 1 on success; 0 on any
    // file or archive failure, the set holding what was read before it.
    int Refresh();
    // Writes "default.flt": 1 on success, 0 on failure.
    int Update();
    // The full name of the definitions file.
    static CString GetFileName();

    void Serialize(CArchive& ar) override;

private:
    std::vector<std::unique_ptr<CFilter>> m_filters;
};
#pragma GCC visibility pop
