/** @file
 * The kinds of plug-ins. The kind decides three things, and nothing else:
 *
 * - who gets a key that several plug-ins registered: the lower value before the higher one;
 * - whether the host forgets the plug-in when it leaves, or keeps its place until the host ends;
 * - on which layer of the viewer's canvas its window lies.
 */
#pragma once

/// The kind of a plug-in.
enum VIEWER_PLUGIN_TYPE : int {
  VIEWER_PLUGIN_STAYS_0 = 0, /**< never forgotten; window where the viewer puts it */
  VIEWER_PLUGIN_STAYS_1 = 1, /**< likewise, after those before */
  VIEWER_PLUGIN_STAYS_2 = 2, /**< likewise */
  VIEWER_PLUGIN_STAYS_3 = 3, /**< likewise */
  VIEWER_PLUGIN_LEAVES = 4,  /**< forgotten when it leaves; window where the viewer puts it */
  VIEWER_PLUGIN_LEAVES_LAYER_4 = 5, /**< likewise; window on layer 4, that of "hbbtv" on layer 7 */
  VIEWER_PLUGIN_LEAVES_LAYER_101 = 6, /**< likewise; window on layer 101, above everything */
};
