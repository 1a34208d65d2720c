/**
 * @file
 * librastchain: chains of raster filters on pages that arrive line by line.
 *
 * A chain is opened from its text, such as "satadjust raise : rotate cw". A page begins with its
 * size; then its lines go in, any number at a time, and the lines of the result come out. Any
 * number of pages may follow one another. Results are those of librast, to the byte, however the
 * lines are divided.
 *
 *     RastChain* chain = NULL;
 *     rastChainOpen("satadjust raise : rotate cw", NULL, &chain, NULL);
 *     RastChainPage in = {.nWidth = 2480, .nHeight = 3508, .nComponents = 3}, out;
 *     rastChainBegin(chain, &in, &out, NULL);
 *     while (rastChainRun(chain, &linesIn, &linesOut, NULL) == RAST_CHAIN_OK) {
 *       // linesIn.nCount is 0: more lines are to go in; linesOut.nCount is 0: use the lines
 *     }
 *     // use the last lines
 *     rastChainClose(chain);
 *
 * Samples have 8 bits. A gray page has one component, a color page three (R, G, B), a CMYK page
 * four (C, M, Y, K). The operations that treat each plane alone take CMYK pages.
 *
 * Errors. A function that fails returns a code other than RAST_CHAIN_OK and RAST_CHAIN_DONE and
 * fills the error record, unless that is null. An error inside a page ends the page, and the chain
 * may begin the next one.
 *
 * Memory. The lines in work stay within a cap. A quarter turn and an overlay keep whole pages in
 * temporary files, which the cap does not count. The cap does not count the lines that
 * rastChainImageLines splits either: an image takes up to 64 KiB, or two lines if they are longer.
 *
 * Files. A quarter turn and an overlay create temporary files, which have no names while they hold
 * samples. The library opens other files, those of curves and matrices, only where nFiles of the
 * settings allows them; pReadImage of the settings opens the images of overlays.
 *
 * Progress. The library prints nothing. A caller measures progress by its own records: the lines of
 * the page that have gone in, and the lines that have come out against nHeight of the page that
 * rastChainPlan or rastChainBegin reports.
 *
 * Threads. The library has no global state. One chain belongs to one thread at a time; different
 * chains may run on different threads at once.
 */
#ifndef RAST_CHAIN_H
#define RAST_CHAIN_H

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes. */
enum {
  RAST_CHAIN_OK = 0,              /**< done; inside a page: more lines are to go in or come out */
  RAST_CHAIN_DONE = 1,            /**< the last line is in, and the last one is out */
  RAST_CHAIN_ERR_TEXT = 2,        /**< the text of the chain is wrong, or a file that it names */
  RAST_CHAIN_ERR_PAGE = 3,        /**< a value of the chain does not suit the size of this page */
  RAST_CHAIN_ERR_UNSUPPORTED = 4, /**< an operation does not take pages of this kind or size */
  RAST_CHAIN_ERR_MEMORY = 5,      /**< more memory is needed than the cap, or than there is */
  RAST_CHAIN_ERR_FILE = 6,        /**< a temporary file failed */
  RAST_CHAIN_ERR_CALLER = 7,      /**< a function of the settings failed */
  RAST_CHAIN_ERR_USE = 8,         /**< an argument is wrong, or the call does not fit the page */
};

/** A chain: opaque, owned by the caller between rastChainOpen and rastChainClose. */
typedef struct RastChain RastChain;

/** An error: its kind, its place and its message. */
typedef struct RastChainError {
  uint32_t nCode;       /**< the result code of the call */
  uint32_t nStep;       /**< step of the chain, from 1; 0: no single step */
  uint32_t nLine;       /**< line of the step's output, from 1; 0: no single line */
  uint32_t nBegin;      /**< byte of the chain's text at which the wrong word begins; where a
                             parameter is missing, the byte after the last word of its step */
  uint32_t nEnd;        /**< byte after the wrong word; equal to nBegin where no word is wrong */
  uint64_t nNeeded;     /**< RAST_CHAIN_ERR_MEMORY: the least cap that the page needs, or 0 */
  char sOperation[16];  /**< name of the step's operation, or empty */
  char sSuggestion[64]; /**< nearest known spelling of the wrong word, the operation that
                             converts an unsupported page, or empty */
  char sMessage[512];   /**< the message, in English, without a full stop */
} RastChainError;

/** The size and kind of a page. */
typedef struct RastChainPage {
  uint32_t nWidth;      /**< columns, 1 .. 2147483647 */
  uint32_t nHeight;     /**< lines, 1 .. 2147483647 */
  uint32_t nComponents; /**< 1: gray, 3: R, G, B, 4: C, M, Y, K */
  uint32_t nTurns;      /**< clockwise quarter turns so far, 0 .. 3; in: usually 0 */
  double nResolutionX;  /**< pixels per inch along a line; 0: unknown */
  double nResolutionY;  /**< pixels per inch down a column; 0: unknown */
  uint64_t nMemory;     /**< in: cap in bytes for the lines in work, 0: that of the settings;
                             out: the least cap that the page needs */
  uint64_t nTaken;      /**< in: bytes of the cap that the caller's own buffers take */
  uint32_t nLines;      /**< out: lines that are quick to take at a time; not read */
} RastChainPage;

/**
 * Lines of a page in the caller's memory. Interleaved lines have all components of a pixel next to
 * each other and lie in pPlane[0] alone; planar lines have one plane for each component, with the
 * same pitch in all. The lines that go in and those that come out may have different layouts.
 */
typedef struct RastChainLines {
  uint8_t* pPlane[4]; /**< first sample of the next line; only read where lines go in */
  ptrdiff_t nPitch;   /**< bytes from one line to the next: a line at the least unless there is one
                           line only, and at most PTRDIFF_MAX divided by the lines (nCount, or the
                           height of the page if that is less); negative: each line lies before the
                           line above it */
  uint32_t nCount;    /**< lines that are left, or that there is room for */
  uint32_t nPlanar;   /**< 0: interleaved, any other value: planar */
} RastChainLines;

/** An image that an overlay asks for: opaque, valid until pReadImage returns. */
typedef struct RastChainImage RastChainImage;

/** Value of nBackground in pReadImage where the text names no background. */
#define RAST_CHAIN_NO_BACKGROUND (-1)

/**
 * Settings of a chain. A member that is 0 has the meaning given below. rastChainOpen copies the
 * record and the folder's name.
 *
 * The library calls the functions on the caller's thread, inside a call for the chain. They
 * must return. They must not pass that chain to any function of the library, so neither abandon
 * its page nor close it; a result other than 0 ends the page. rastChainImageBegin and
 * rastChainImageLines take the image alone.
 */
typedef struct RastChainSettings {
  size_t nSize;        /**< sizeof(RastChainSettings), so that later versions may add members;
                            members beyond nSize bytes are 0; 0: the members of version 1.0 */
  uint64_t nMemory;    /**< cap in bytes for the lines in work; 0: 240 MiB */
  uint32_t nLines;     /**< lines worked on at a time, where the operation leaves the choice, and no
                            more than the page has; 0: the lines that the processor's cache holds */
  uint32_t nGray;      /**< other than 0: color pages become gray before the first step */
  uint32_t nFiles;     /**< 0: curves and matrices must not be files; any other value: they may */
  const char* pFolder; /**< folder of temporary files; null: that of TMPDIR, or /tmp */
  void* pUser;         /**< passed to the functions below */

  /**
   * Reads the image of an overlay: calls rastChainImageBegin, then rastChainImageLines until the
   * image is complete. rastChainPlan and rastChainBegin call it when the image is first needed; the
   * chain keeps the image. Null: rastChainOpen rejects chains with an overlay.
   *
   * @param pUser pUser of the settings
   * @param pName the name that the chain's text gives
   * @param nBackground sample, 0 or 255, of the background that a transparent image is put on;
   *     RAST_CHAIN_NO_BACKGROUND: the text names none
   * @param pImage receives the image
   * @return 0, or another value where the image cannot be read
   */
  int (*pReadImage)(void* pUser, const char* pName, int nBackground, RastChainImage* pImage);

  /**
   * Receives lines from rastChainWrite, in page order, interleaved and without gaps between lines.
   *
   * @param pUser pUser of the settings
   * @param pLines the lines, one or more; the samples are the library's and valid during the call
   * @return 0, or another value to end the page
   */
  int (*pWriteLines)(void* pUser, const RastChainLines* pLines);
} RastChainSettings;

/**
 * Opens a chain.
 *
 * A chain has up to 100 steps; without a step it passes pages unchanged. A step is the name of an
 * operation and its parameters: name=value, or the name alone for a switch. The first parameter may
 * be given by its value alone unless it is a number or a size. A word alone that is close to the
 * name of a switch is rejected as a misspelling. rastChainDescribe lists the operations.
 *
 * Blanks separate words, and a colon between blanks or the end of a line separates steps. Quotation
 * marks keep blanks together, and # at the start of a word begins a comment up to the end of the
 * line. In a line without blanks between its characters, commas separate words and colons separate
 * steps.
 *
 * @param pText the chain, ending with a null byte
 * @param pSettings null: all members are 0
 * @param ppChain receives the chain, to be closed by rastChainClose, or null after an error
 * @param pError null, or receives the error
 * @return RAST_CHAIN_OK, or
 *   - RAST_CHAIN_ERR_USE: pText or ppChain is null
 *   - RAST_CHAIN_ERR_TEXT: the text is wrong, or a file that it names cannot be read
 *   - RAST_CHAIN_ERR_MEMORY: there is not enough memory
 */
uint32_t rastChainOpen(const char* pText, const RastChainSettings* pSettings, RastChain** ppChain,
                       RastChainError* pError);

/**
 * Reports the page that would come out, without beginning one. A page that is in work goes on.
 *
 * @param pChain the chain
 * @param pIn the page that would go in; its nMemory is not read
 * @param pOut receives the page that would come out; its nMemory receives the least cap that the
 *     page needs
 * @param pError null, or receives the error
 * @return RAST_CHAIN_OK, the first error of rastChainImageBegin or rastChainImageLines inside
 *     pReadImage, or
 *   - RAST_CHAIN_ERR_USE: a pointer is null, or pIn has no size or kind that a page may have
 *   - RAST_CHAIN_ERR_PAGE: a value of the chain does not suit the size of the page
 *   - RAST_CHAIN_ERR_UNSUPPORTED: an operation does not take the page
 *   - RAST_CHAIN_ERR_CALLER: pReadImage failed, or gave no complete image
 *   - RAST_CHAIN_ERR_MEMORY: there is not enough memory
 */
uint32_t rastChainPlan(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                       RastChainError* pError);

/**
 * Begins a page. A page that is not complete is abandoned, also where the call fails.
 *
 * @param pChain the chain
 * @param pIn the page whose lines will go in
 * @param pOut null, or receives the page that will come out; may be pIn
 * @param pError null, or receives the error
 * @return RAST_CHAIN_OK, or an error of rastChainPlan, after which the chain has no page.
 *     RAST_CHAIN_ERR_MEMORY also where the page needs more than the cap, and RAST_CHAIN_ERR_FILE
 *     where any temporary file failed.
 */
uint32_t rastChainBegin(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                        RastChainError* pError);

/**
 * Moves lines through the chain until pIn has no lines left or pOut has no room left. Both records
 * are advanced past the lines that went in and came out.
 *
 * Lines go in only as far as there is room: without room nothing moves, also where the chain would
 * keep the lines for the time being. Once the last line is out, lines that are left are taken and
 * dropped.
 *
 * @param pChain the chain, with a page
 * @param pIn lines to go in, not more than the page has left; null: none
 * @param pOut room for lines to come out; null: none. Must not overlap pIn.
 * @param pError null, or receives the error
 * @return RAST_CHAIN_OK; RAST_CHAIN_DONE, after which the chain has no page; or
 *   - RAST_CHAIN_ERR_USE: pChain is null or has no page, pIn has more lines than the page has left,
 *     a plane is null, or a pitch is out of its range
 *   - RAST_CHAIN_ERR_FILE: a temporary file failed
 *   - RAST_CHAIN_ERR_MEMORY: there is not enough memory
 */
uint32_t rastChainRun(RastChain* pChain, RastChainLines* pIn, RastChainLines* pOut,
                      RastChainError* pError);

/**
 * Moves all given lines into the chain and hands the lines that come out to pWriteLines of the
 * settings.
 *
 * @param pChain the chain, with a page
 * @param pIn lines to go in, not more than the page has left; not changed
 * @param pError null, or receives the error
 * @return RAST_CHAIN_OK; RAST_CHAIN_DONE, after which the chain has no page; or an error of
 *     rastChainRun. RAST_CHAIN_ERR_USE also where pIn or pWriteLines is null, and
 *     RAST_CHAIN_ERR_CALLER where pWriteLines failed.
 */
uint32_t rastChainWrite(RastChain* pChain, const RastChainLines* pIn, RastChainError* pError);

/**
 * Abandons the page, if there is one, and frees its memory and temporary files. The images of
 * overlays stay.
 *
 * @param pChain the chain, or null; not the chain that is calling a function of the settings
 */
void rastChainAbandon(RastChain* pChain);

/**
 * Counts the steps of a chain.
 *
 * @param pChain the chain, or null
 * @return number of steps in its text; 0 for null
 */
uint32_t rastChainSteps(const RastChain* pChain);

/**
 * Closes a chain, abandons its page and frees its images.
 *
 * @param pChain the chain, or null; not the chain that is calling a function of the settings
 */
void rastChainClose(RastChain* pChain);

/**
 * Gives an image its size; once, inside pReadImage.
 *
 * @param pImage the image
 * @param pPage its size and kind; the other members are not read
 * @return RAST_CHAIN_OK, the error of an earlier call for this image, or
 *   - RAST_CHAIN_ERR_USE: a pointer is null, the image has a size already, or pPage has no size or
 *     kind that a page may have
 *   - RAST_CHAIN_ERR_UNSUPPORTED: the image is too large
 *   - RAST_CHAIN_ERR_FILE: the temporary file failed
 *   - RAST_CHAIN_ERR_MEMORY: there is not enough memory
 */
uint32_t rastChainImageBegin(RastChainImage* pImage, const RastChainPage* pPage);

/**
 * Gives an image its next lines; inside pReadImage, after rastChainImageBegin.
 *
 * @param pImage the image
 * @param pLines the lines, not more than the image has left; not changed
 * @return RAST_CHAIN_OK, RAST_CHAIN_DONE after the last line, the error of an earlier call for this
 *     image, or
 *   - RAST_CHAIN_ERR_USE: a pointer is null, the image has no size, there are too many lines, a
 *     plane is null, or the pitch is out of its range
 *   - RAST_CHAIN_ERR_FILE: the temporary file failed
 *   - RAST_CHAIN_ERR_MEMORY: there is not enough memory
 */
uint32_t rastChainImageLines(RastChainImage* pImage, const RastChainLines* pLines);

/**
 * Describes the operations as a JSON array. Each operation has a name, a summary, details, an
 * example, the kinds of pages that it takes, and parameters with kinds, ranges and defaults.
 *
 * @param pBuffer null, or room for the text and a null byte
 * @param nSize bytes at pBuffer; a longer text is cut
 * @return length of the whole text in bytes, without the null byte; 0, with an empty text, where
 *     there is not enough memory
 */
size_t rastChainDescribe(char* pBuffer, size_t nSize);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif
