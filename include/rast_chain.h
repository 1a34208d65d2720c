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
 *       // refill linesIn when it is empty, use linesOut when it is full
 *     }
 *     rastChainClose(chain);
 *
 * Samples have 8 bits. A gray page has one component, a color page three (R, G, B), a CMYK page
 * four. CMYK pages pass through the operations that treat each plane alone.
 *
 * Errors. A function that fails returns a code other than RAST_CHAIN_OK and RAST_CHAIN_DONE and
 * fills the error record, unless that is null. After an error inside a page, the page is over; the
 * chain may begin another one.
 *
 * Memory. The lines in work stay within the cap of the settings. A quarter turn and an overlay keep
 * whole pages in temporary files, which do not count.
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
  RAST_CHAIN_DONE = 1,            /**< the last line of the page is in, and the last one is out */
  RAST_CHAIN_ERR_TEXT = 2,        /**< the text of the chain is wrong */
  RAST_CHAIN_ERR_PAGE = 3,        /**< a value of the chain does not suit the size of this page */
  RAST_CHAIN_ERR_UNSUPPORTED = 4, /**< an operation does not take pages of this kind or size */
  RAST_CHAIN_ERR_MEMORY = 5,      /**< more memory is needed than the cap, or than there is */
  RAST_CHAIN_ERR_FILE = 6,        /**< a temporary file, or a file that the chain names, failed */
  RAST_CHAIN_ERR_CALLER = 7,      /**< a function of the caller's settings reported a failure */
  RAST_CHAIN_ERR_USE = 8,         /**< the call does not fit the state or the shape of the page */
};

/** A chain: opaque, owned by the caller between rastChainOpen and rastChainClose. */
typedef struct RastChain RastChain;

/** What failed, and where. */
typedef struct RastChainError {
  uint32_t nCode;   /**< the result code of the call */
  uint32_t nStep;   /**< step of the chain, from 1; 0: not a single step */
  uint32_t nLine;   /**< line of the page that comes out of the step, from 1; 0: no single line */
  uint32_t nBegin;  /**< byte of the chain's text at which the wrong word begins */
  uint32_t nEnd;    /**< byte after that word; equal to nBegin where no word is wrong */
  uint64_t nNeeded; /**< RAST_CHAIN_ERR_MEMORY: the least cap that the page needs, or 0 */
  char sOperation[16];  /**< name of the step's operation, or empty */
  char sSuggestion[64]; /**< nearest known spelling of the wrong word; RAST_CHAIN_ERR_UNSUPPORTED:
                              the operation that converts the page; or empty */
  char sMessage[512];   /**< one sentence in English, without place and full stop */
} RastChainError;

/** The size and kind of a page. */
typedef struct RastChainPage {
  uint32_t nWidth;      /**< columns, 1 .. 2147483647 */
  uint32_t nHeight;     /**< lines, 1 .. 2147483647 */
  uint32_t nComponents; /**< 1: gray, 3: R, G, B, 4: C, M, Y, K */
  uint32_t nTurns;      /**< quarter turns since the page came in, modulo 4; 0 on input */
  double nResolutionX;  /**< pixels per inch along a line; 0: unknown */
  double nResolutionY;  /**< pixels per inch down a column; 0: unknown */
  uint64_t nMemory;     /**< in: cap in bytes for the lines of this page, 0: that of the settings;
                             out: the least cap that the page needs */
  uint64_t nTaken;      /**< in: bytes of the cap that the caller's own buffers take */
  uint32_t nLines;      /**< out: lines that are quick to take at a time; not read */
} RastChainPage;

/**
 * Lines of a page in the caller's memory. Interleaved lines have all components of a pixel next to
 * each other and lie in pPlane[0] alone; planar lines have one plane for each component. The two
 * sides of a page may have different layouts.
 */
typedef struct RastChainLines {
  uint8_t* pPlane[4]; /**< first sample of the next line; only read where lines go in */
  ptrdiff_t nPitch;   /**< bytes from one line to the next; negative: lines run upwards */
  uint32_t nCount;    /**< lines that are left */
  uint32_t nPlanar;   /**< 0: interleaved, 1: planar */
} RastChainLines;

/** An image that the engine asks for. Opaque; valid until the function that got it returns. */
typedef struct RastChainImage RastChainImage;

/** Where nBackground of pReadImage asks for no background. */
#define RAST_CHAIN_NO_BACKGROUND (-1)

/** Settings of a chain. Every member may be 0. Copied by rastChainOpen. */
typedef struct RastChainSettings {
  size_t nSize;        /**< sizeof(RastChainSettings), for members that later versions add */
  uint64_t nMemory;    /**< cap in bytes for the lines in work; 0: 240 MiB */
  uint32_t nLines;     /**< lines worked on at a time; 0: as many as the processor's cache holds */
  uint32_t nGray;      /**< 1: color pages become gray before the first step */
  uint32_t nFiles;     /**< 1: the text may name files of curves and matrices; 0: it may not */
  const char* pFolder; /**< folder of temporary files; null: that of TMPDIR, or /tmp */
  void* pUser;         /**< passed to the functions below */

  /**
   * Reads the image of an overlay: calls rastChainImageBegin, then rastChainImageLines until the
   * image is complete. Null: chains with an overlay are refused.
   *
   * @param pUser pUser of the settings
   * @param pName the name that the chain's text gives
   * @param nBackground sample, 0 or 255, of the background that a transparent image is put on;
   *     RAST_CHAIN_NO_BACKGROUND: the text names none
   * @param pImage receives the image
   * @return 0, or another value where the image cannot be had
   */
  int (*pReadImage)(void* pUser, const char* pName, int nBackground, RastChainImage* pImage);

  /**
   * Receives lines from rastChainWrite, interleaved, in page order.
   *
   * @param pUser pUser of the settings
   * @param pLines the lines; valid during the call
   * @return 0, or another value to end the page
   */
  int (*pWriteLines)(void* pUser, const RastChainLines* pLines);
} RastChainSettings;

/**
 * Opens a chain.
 *
 * A text without steps is a chain that passes pages as they are. Steps stand between colons; a step is the name of an operation and its parameters as name=value,
 * name alone for a switch, or the value of the first parameter alone. Words stand between blanks,
 * or, in a text without blanks, between commas. rastChainDescribe lists the operations.
 *
 * @param pText the chain, ending with a null byte
 * @param pSettings null: all members are 0
 * @param ppChain receives the chain, or null after an error
 * @param pError null, or receives what is wrong
 * @return RAST_CHAIN_OK, RAST_CHAIN_ERR_USE where pText or ppChain is null,
 *     RAST_CHAIN_ERR_TEXT, RAST_CHAIN_ERR_FILE or RAST_CHAIN_ERR_MEMORY
 */
uint32_t rastChainOpen(const char* pText, const RastChainSettings* pSettings, RastChain** ppChain,
                       RastChainError* pError);

/**
 * Reports what a page would become, without beginning it. An overlay's image is read if it has not
 * been read yet. A page that is in work is not touched.
 *
 * @param pChain the chain
 * @param pIn the page that would go in; its nMemory is not read
 * @param pOut receives the page that would come out, and in nMemory the memory it needs
 * @param pError null, or receives what is wrong
 * @return RAST_CHAIN_OK, or an error
 */
uint32_t rastChainPlan(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                       RastChainError* pError);

/**
 * Begins a page. A page that is not complete is abandoned.
 *
 * @param pChain the chain
 * @param pIn the page whose lines will go in
 * @param pOut receives the page that will come out
 * @param pError null, or receives what is wrong
 * @return RAST_CHAIN_OK, or an error; the chain has no page then
 */
uint32_t rastChainBegin(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                        RastChainError* pError);

/**
 * Moves lines through the chain until pIn has no lines left or pOut has no room left. Both records
 * are advanced past the lines that went in and came out. Lines that no result depends on any more
 * are taken and dropped.
 *
 * @param pChain the chain, with a page
 * @param pIn lines to go in; null: none
 * @param pOut room for lines to come out; null: none. Must not overlap pIn.
 * @param pError null, or receives what is wrong
 * @return RAST_CHAIN_OK, RAST_CHAIN_DONE, or an error
 */
uint32_t rastChainRun(RastChain* pChain, RastChainLines* pIn, RastChainLines* pOut,
                      RastChainError* pError);

/**
 * Moves all given lines into the chain and hands the lines that come out to pWriteLines of the
 * settings.
 *
 * @param pChain the chain, with a page
 * @param pIn lines to go in; not changed
 * @param pError null, or receives what is wrong
 * @return RAST_CHAIN_OK, RAST_CHAIN_DONE, or an error
 */
uint32_t rastChainWrite(RastChain* pChain, const RastChainLines* pIn, RastChainError* pError);

/**
 * Abandons the page, if there is one, and gives its memory and temporary files back.
 *
 * @param pChain the chain
 */
void rastChainAbandon(RastChain* pChain);

/**
 * @param pChain the chain
 * @return number of its steps
 */
uint32_t rastChainSteps(const RastChain* pChain);

/**
 * Closes a chain, with whatever page it has.
 *
 * @param pChain the chain, or null
 */
void rastChainClose(RastChain* pChain);

/**
 * Gives an image its size; inside pReadImage, once.
 *
 * @param pImage the image
 * @param pPage its size and kind
 * @return RAST_CHAIN_OK or an error, which rastChainBegin reports too
 */
uint32_t rastChainImageBegin(RastChainImage* pImage, const RastChainPage* pPage);

/**
 * Gives an image its next lines; inside pReadImage, after rastChainImageBegin.
 *
 * @param pImage the image
 * @param pLines the lines; not changed
 * @return RAST_CHAIN_OK, RAST_CHAIN_DONE after the last line, or an error, which rastChainBegin
 *     reports too
 */
uint32_t rastChainImageLines(RastChainImage* pImage, const RastChainLines* pLines);

/**
 * Describes the operations as a JSON array: names, summaries, details, the kinds of pages they
 * take, and parameters with kinds, ranges, defaults and examples.
 *
 * @param pBuffer null, or room for the text and a null byte
 * @param nSize bytes at pBuffer; a longer text is cut
 * @return length of the whole text, without the null byte
 */
size_t rastChainDescribe(char* pBuffer, size_t nSize);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif
