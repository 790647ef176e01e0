/* Evaluation modifiers: plug-in servers that compute output channels from input channels.
 *
 * A modifier is a server of class "evalModifier" in the registry of servers (vexor/host.h).
 * Its factory (HostAddBuiltIn) makes a component object (vexor/sys/component.h) with the
 * factory interface below. Tags describe the server without making anything:
 *   "modifier.typeList"  package names separated by blanks; when the list is not empty and the
 *                        scene has no item of any of these types (or their descendants), the
 *                        modifier is left out of that scene
 *   "modifier.graphList" names of the scene graphs whose links the modifier follows
 *   "modifier.guidList"  GUIDs of further interfaces its nodes report; a node that lacks one
 *                        is not made
 *   "modifier.required"  present: the factory object is made as soon as the modifier is known,
 *                        not only when a scene first needs it
 *
 * Whenever a scene's modifiers are validated (before the first evaluation, and again after
 * items or packages come and go), the factory is asked whether it applies to the scene, then
 * to name the (item, index) pairs it wants a node for; it makes one node per pair, once. A
 * node declares its inputs and outputs when the scene's nodes are linked; when a channel is
 * read, the nodes that write it run after the nodes that write their inputs. Nodes whose
 * inputs depend on their own outputs (a cycle) are reported to the debug log and left out.
 *
 * Threads: factories are called on the thread that validates, with the scene's lists locked;
 * a node's Evaluate runs under the node's own lock, from whichever thread reads a channel it
 * writes, so one node is never evaluated by two threads at once, but different nodes may be. */
#ifndef VEXOR_SYS_MODIFIER_H
#define VEXOR_SYS_MODIFIER_H

#include "vexor/cinema.h"
#include "vexor/export.h"
#include "vexor/sys/component.h"

VX_EXTERN_C_BEGIN

/* The server class and its GUID alias. */
#define CINE_MODIFIER_CLASS "evalModifier"
#define CINE_MODIFIER_CLASS_GUID "{30AAAF24-9699-4737-8E3B-E264AA4B7A3E}"

#define CINE_MOD_FACTORY_GUID "{6B1E3F52-8D47-4C2A-9E61-3A5F0C7D2B84}"
#define CINE_MOD_NODE_GUID "{A4C27D19-5E83-4B6F-B0D2-7F19E4A63C05}"

/* Given to a node while it declares its inputs and outputs. */
typedef struct CineModLinks CineModLinks;
/* Given to a node while it computes: its inputs' values, its outputs to set. */
typedef struct CineModEval CineModEval;

/* Called by a factory's Enumerate once for each (item, index) pair it wants a node for. */
typedef void (*CineModVisitFunc)(void *visitData, CineItem *item, unsigned int index);

typedef struct CineModFactoryMethods {
    XObjectMethods base;
    /* Whether the modifier applies to the scene: a negative answer leaves it out. */
    int (*Applies)(void *obj, Cinema *scene);
    /* Names the pairs it wants nodes for, through visit. */
    void (*Enumerate)(void *obj, Cinema *scene, CineModVisitFunc visit, void *visitData);
    /* Makes the node instance of a pair into *node: a component object with the node
     * interface, whose one reference passes to the caller. Returns VX_OK or a failure code. */
    unsigned int (*Create)(void *obj, CineItem *item, unsigned int index, void **node);
} CineModFactoryMethods;

typedef struct CineModNodeMethods {
    XObjectMethods base;
    /* Declares the node's inputs and outputs (CineModAddInput, ...). Returns VX_OK or a
     * failure code, which leaves the node out. */
    unsigned int (*Link)(void *obj, CineModLinks *links);
    /* Computes the outputs from the inputs. Outputs not set keep the value they come in with
     * (the channel's value as the action sees it, or what an earlier node wrote). Returns VX_OK
     * or a failure code, which leaves the incoming values in place. */
    unsigned int (*Evaluate)(void *obj, CineModEval *eval);
} CineModNodeMethods;

/* ---- While linking ---------------------------------------------------------------------
 * Each returns the input's or output's index (counted from 0 in the order of the calls), or
 * -1 for an item of another scene or a channel out of range. */
VX_API int CineModAddInput(CineModLinks *links, CineItem *item, unsigned int channel);
/* The scene's time as an input: a node that reads it is evaluated again at every time. */
VX_API int CineModAddTimeInput(CineModLinks *links);
VX_API int CineModAddOutput(CineModLinks *links, CineItem *item, unsigned int channel);
/* Gives the node an enable control: the node runs only while bit 0 of the flags is set. */
VX_API void CineModSetControl(CineModLinks *links, unsigned int flags);

/* ---- While evaluating ------------------------------------------------------------------
 * Out-of-range indices read as 0 (or null) and are ignored when set. */
VX_API double CineModInput(CineModEval *eval, unsigned int index);
/* A matrix input as 16 doubles, row by row; null when the input is not a matrix channel. */
VX_API const double *CineModInputMatrix(CineModEval *eval, unsigned int index);
/* The value an output comes in with. */
VX_API double CineModOutput(CineModEval *eval, unsigned int index);
VX_API void CineModSetOutput(CineModEval *eval, unsigned int index, double value);
/* Sets a matrix output (16 doubles, row by row); ignored for outputs that are not matrices. */
VX_API void CineModSetOutputMatrix(CineModEval *eval, unsigned int index, const double *matrix);
/* The time being evaluated. */
VX_API double CineModTime(CineModEval *eval);

VX_EXTERN_C_END

#endif
