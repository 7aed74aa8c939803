#ifndef ZV_HOST_QX_H
#define ZV_HOST_QX_H
/* The host array interface. The add-on library calls these functions and never defines them: whoever
 * loads it (the reference host, the Octave binding) does, and exports them.
 *
 * Ownership follows the host's rules. A create function returns an array the caller owns until it
 * passes it on: qxSetField and qxSetCell take ownership of the value they store, and a container
 * destroyed with qxDestroyArray frees its whole tree. A get function (qxGetField, qxGetCell, qxGetData,
 * qxGetDimensions, names) returns storage borrowed from its array, valid until the array or the slot
 * changes. Indices count from 0, except inside qxSubscriptedReference, which indexes as the host's
 * language does (from 1).
 *
 * Errors: invalid requests that a real host would refuse (a bad class, an impossible size, a subscript
 * out of range) raise a host error and do not return. Plain queries on a null array return a neutral
 * value (class unknown, zero elements, false, null) instead.
 */
#include <stdbool.h>
#include <stddef.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__GNUC__)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qxArray_tag qxArray;
typedef size_t qxSize;
typedef size_t qxIndex;
typedef char16_t qxChar;  /* one UTF-16 code unit of a character array */
typedef bool qxLogical;   /* one element of a logical array */

typedef enum {
  qxUNKNOWN_CLASS,
  qxCELL_CLASS,
  qxSTRUCT_CLASS,
  qxLOGICAL_CLASS,
  qxCHAR_CLASS,
  qxVOID_CLASS,
  qxDOUBLE_CLASS,
  qxSINGLE_CLASS,
  qxINT8_CLASS,
  qxUINT8_CLASS,
  qxINT16_CLASS,
  qxUINT16_CLASS,
  qxINT32_CLASS,
  qxUINT32_CLASS,
  qxINT64_CLASS,
  qxUINT64_CLASS,
  qxFUNCTION_CLASS,
  qxOBJECT_CLASS
} qxClassID;

typedef enum { qxREAL, qxCOMPLEX } qxComplexity;

/* The extension-call signature of every gateway function. outputs has room for at least
 * max(outputCount, 1) arrays, all null on entry; what the function stores there belongs to the caller. */
typedef void (*qxFunction)(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs);

/* ---- creation: the caller owns the result -------------------------------------------------------
 * Dimensions: fewer than two are padded with 1, trailing 1s beyond the second are dropped. */
QX_API qxArray* qxCreateDoubleScalar(double value);
QX_API qxArray* qxCreateLogicalScalar(bool value);
/* Numeric classes only (double, single, integers); data zeroed. */
QX_API qxArray* qxCreateNumericMatrix(qxSize m, qxSize n, qxClassID classID, qxComplexity complexity);
QX_API qxArray* qxCreateNumericArray(qxSize ndim, const qxSize* dims, qxClassID classID,
                                     qxComplexity complexity);
QX_API qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims);
QX_API qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims);
/* A 1xN character array. utf8 must be well-formed UTF-8 (else a host error); null reads as "". */
QX_API qxArray* qxCreateString(const char* utf8);
/* A 1xN character array of the code units up to the terminator, taken as they are; null reads as "". */
QX_API qxArray* qxCreateString_UTF16(const char16_t* text);
/* Every slot empty (null). */
QX_API qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims);
/* Field names must be distinct identifiers (a letter, then letters, digits, underscores); every value
 * starts unset (null). */
QX_API qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names);
/* An object of class className (an identifier) over structure-like storage. A host that cannot make
 * objects this way returns null. */
QX_API qxArray* qxCreateObjectArray(const char* className, qxSize ndim, const qxSize* dims, int nfields,
                                    const char** names);
/* A deep copy; null gives null. */
QX_API qxArray* qxDuplicateArray(const qxArray* a);
/* Frees a and everything it holds. Null is ignored. Destroying an array still held by a container is a
 * programming error. */
QX_API void qxDestroyArray(qxArray* a);

/* ---- class and shape ---------------------------------------------------------------------------- */
QX_API qxClassID qxGetClassID(const qxArray* a);
/* "double", "cell", "struct", ... or an object's class name; borrowed. */
QX_API const char* qxGetClassName(const qxArray* a);
QX_API bool qxIsStruct(const qxArray* a);
QX_API bool qxIsObject(const qxArray* a);
QX_API bool qxIsCell(const qxArray* a);
QX_API bool qxIsChar(const qxArray* a);
QX_API bool qxIsLogical(const qxArray* a);
QX_API bool qxIsNumeric(const qxArray* a);
QX_API bool qxIsComplex(const qxArray* a);
/* True when the array has no elements, and for null. */
QX_API bool qxIsEmpty(const qxArray* a);
QX_API qxSize qxGetNumberOfElements(const qxArray* a);
QX_API qxSize qxGetNumberOfDimensions(const qxArray* a);
QX_API const qxSize* qxGetDimensions(const qxArray* a);
QX_API qxSize qxGetM(const qxArray* a);
/* The product of every dimension after the first. */
QX_API qxSize qxGetN(const qxArray* a);

/* ---- element data ---------------------------------------------------------------------------------
 * Column-major storage of numeric (the C type of the class), char (qxChar) and logical (qxLogical)
 * arrays; null for containers and for arrays without elements. Complex arrays keep the imaginary parts
 * apart. */
QX_API void* qxGetData(const qxArray* a);
QX_API void* qxGetImagData(const qxArray* a);
/* The real part of element 0 as a double; 0 when there is none. */
QX_API double qxGetScalar(const qxArray* a);

/* ---- cells ---------------------------------------------------------------------------------------- */
/* Borrowed; null when the slot is empty or i is out of range. */
QX_API qxArray* qxGetCell(const qxArray* a, qxIndex i);
/* Takes ownership of value in every case (on failure it is destroyed and a host error raised); frees
 * the value it replaces. value may be null to empty the slot. */
QX_API void qxSetCell(qxArray* a, qxIndex i, qxArray* value);

/* ---- structures and objects --------------------------------------------------------------------- */
QX_API int qxGetNumberOfFields(const qxArray* a);
/* Borrowed; null when n is out of range. */
QX_API const char* qxGetFieldNameByNumber(const qxArray* a, int n);
/* -1 when there is no such field. */
QX_API int qxGetFieldNumber(const qxArray* a, const char* name);
/* Borrowed; null when the field is missing or unset, a is not a structure or object, or i is out of
 * range. */
QX_API qxArray* qxGetField(const qxArray* a, qxIndex i, const char* name);
QX_API qxArray* qxGetFieldByNumber(const qxArray* a, qxIndex i, int n);
/* Same ownership as qxSetCell; an unknown field is an error, not an addition. */
QX_API void qxSetField(qxArray* a, qxIndex i, const char* name, qxArray* value);
QX_API void qxSetFieldByNumber(qxArray* a, qxIndex i, int n, qxArray* value);

/* ---- subscripts ----------------------------------------------------------------------------------- */
/* Evaluates a(s1, ..., sN) with N = count >= 1 numeric scalar subscripts counting from 1 (N = 1 is a
 * linear index). Returns a new 1x1 array of a's class holding that element (a structure or object
 * element keeps its fields; a cell gives a 1x1 cell); the caller owns it. Any other subscript, or one
 * out of range, raises a host error. */
QX_API qxArray* qxSubscriptedReference(const qxArray* a, int count, const qxArray** subscripts);

#ifdef __cplusplus
}
#endif

#endif /* ZV_HOST_QX_H */
