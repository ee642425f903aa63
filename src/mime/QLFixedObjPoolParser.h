#ifndef QLMAIL_MIME_QLFIXEDOBJPOOLPARSER_H
#define QLMAIL_MIME_QLFIXEDOBJPOOLPARSER_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <vector>

/// Owns the objects it hands out until FreeHeap. Each GetObject constructs a new object:
/// nothing here ever marks an object free for reuse. CQLMimeMsg keeps the parts of a message
/// in one.
template <class T> class QLMAIL_EXPORT CQLFixedObjPoolParser : public CQLExceptionParser {
public:
    /// An object the pool made, and whether it is handed out.
    struct OBJHEAP {
        T* pObj;     ///< The object.
        bool bInUse; ///< Handed out.
    };

    /// An empty pool.
    CQLFixedObjPoolParser() : m_bNoFree(true), m_nNext(0), m_nCount(0) {}
    /// Copies own nothing: objects stay with the pool that made them.
    CQLFixedObjPoolParser(const CQLFixedObjPoolParser& other)
        : CQLExceptionParser(other), m_bNoFree(true), m_nNext(0), m_nCount(0) {}
    /// Takes the error text only.
    CQLFixedObjPoolParser& operator=(const CQLFixedObjPoolParser& other) {
        CQLExceptionParser::operator=(other);
        return *this;
    }
    /// Deletes every object it made.
    virtual ~CQLFixedObjPoolParser() { FreeHeap(); }

    /// A new object, owned by the pool.
    T* GetObject() {
        if (m_nNext < m_nCount) return m_vecReady[m_nNext++];
        return FindAvailSpaceInHeap();
    }

    /// The same, made on the heap.
    T* FindAvailSpaceInHeap() {
        if (!m_bNoFree) {
            for (OBJHEAP& heap : m_vecHeap) {
                if (!heap.bInUse) {
                    heap.bInUse = true;
                    return heap.pObj;
                }
            }
        }
        if (m_vecHeap.capacity() == 0) m_vecHeap.reserve(8);
        T* pObj = new T;
        m_vecHeap.push_back(OBJHEAP{pObj, true});
        m_bNoFree = true;
        return pObj;
    }

    /// Deletes every object it made.
    void FreeHeap() {
        for (OBJHEAP& heap : m_vecHeap) delete heap.pObj;
        m_vecHeap.clear();
        m_bNoFree = true;
    }

protected:
    ///@{
    /// The objects made, and what the pool knows of them.
    bool m_bNoFree;
    int m_nNext;
    int m_nCount;
    std::vector<T*> m_vecReady;
    std::vector<OBJHEAP> m_vecHeap;
    ///@}
};

#endif
