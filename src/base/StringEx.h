// The one string type of the module: UTF-16 text in a heap block of its own, sized to its content.
// It keeps no length and no capacity, so it costs two words and every length is counted. A null
// block and an empty block both mean the empty text. Lengths, indexes and counts are 32-bit signed
// and in wide characters. Nothing throws: a failed allocation leaves the null block, and the
// operations that follow take that for the empty text. An object belongs to one thread at a time.
#pragma once

#include <windows.h>

#include <cstdarg>

class CStringEx
{
public:
    CStringEx() = default;
    explicit CStringEx(const wchar_t* src);
    CStringEx(const CStringEx& other);
    CStringEx(CStringEx&& other) noexcept;
    virtual ~CStringEx();

    // Assigning a string's own buffer changes nothing; null is taken as the empty text. Both
    // assignments release the lock of GetBuffer.
    CStringEx& operator=(const wchar_t* src);
    CStringEx& operator=(const CStringEx& other);
    CStringEx& operator=(CStringEx&& other) noexcept;
    // From text in the system's ANSI code page.
    CStringEx& operator=(const char* src);

    // The wide assignment for callers to whom a lost text matters: false, and the string empty, when
    // there was no memory.
    bool Assign(const wchar_t* src);

    // From UTF-8 text (not null). FALSE, and the old content kept, when the text is empty or cannot
    // be converted.
    BOOL SetUTF8(const char* utf8);

    // Releases the block and the lock.
    void Empty();

    // The text, never null unless memory has run out: a string without a block is given an empty one.
    // Valid until the next change of the string.
    operator const wchar_t*();
    // The text for reading, never null; changes nothing.
    const wchar_t* c_str() const;

    int GetLength() const;

    CStringEx& operator+=(const wchar_t* text);
    void AppendChar(wchar_t ch);

    // Joins a and b (either may be null) into a new block of exactly two characters more than the
    // text, which the caller frees with delete[]; a block already in *out is released first. *out is
    // null when both texts are empty or memory has run out.
    static void Concat(const wchar_t* a, const wchar_t* b, wchar_t** out);

    // A start below 0 counts as 0; a count below 0 or past the end means all the rest.
    CStringEx Mid(int start, int count) const;
    CStringEx Left(int count) const;
    CStringEx Right(int count) const;

    // Index of the first or last occurrence, case-sensitive; -1 when there is none.
    int Find(const wchar_t* sub) const;
    int ReverseFind(const wchar_t* sub) const;

    // Removes count characters and returns the new length. Outside the text, or with a count below 0,
    // nothing changes.
    int Delete(int index, int count);

    // Replaces every occurrence of oldText. Returns 0 when nothing changed. Intended: otherwise it
    // returns the count of deletions when newText is empty, and the count of replacements plus one
    // when it is not.
    int Replace(const wchar_t* oldText, const wchar_t* newText);

    void MakeLower();

    // Joins a path component with exactly one backslash: slashes, then backslashes, are stripped from
    // its front and from the end of this string. An absolute path is joined like any other text.
    void PathAppend(const wchar_t* lpszFile);
    // The same for another string; one whose block cannot be allocated is reported to the debugger
    // and nothing is appended.
    void PathAppend(CStringEx& strFile);

    // Locks the buffer for direct writing of minLength characters, the terminator among them. Null when
    // it is locked already, or when there is no block and none could be made. A block that is large
    // enough for the text and minLength stays.
    wchar_t* GetBuffer(int minLength);
    // Ends the writing that GetBuffer began.
    void ReleaseBuffer();

    // printf-style formatting of the C runtime, bounded by GetFormatLength. Nothing happens while the
    // buffer is locked.
    void Format(const wchar_t* format, ...);
    // Upper estimate of the formatted length, in characters; the list is left as it was.
    static int GetFormatLength(const wchar_t* format, va_list list);

private:
    static int LengthOf(const wchar_t* text);
    void ReplaceBlock(wchar_t* pszNew);
    int DeleteEvery(const wchar_t* oldText);

    LONG m_bLocked = 0;
    wchar_t* m_pszData = nullptr;
};
