// Resource and control ids of the network views, the library panel and the theater, shared by
// netviews.rc and the code. Plain #defines: the resource compiler reads this file too.
#pragma once

// The "Network" options page.
#define IDD_NETWORK_PAGE 219
#define IDC_AUTO_ONLINE 2190
#define IDC_AUTO_RESUME 2191
#define IDC_BEHIND_FIREWALL 2192
#define IDC_PORT 2193
#define IDC_UPLOAD_PORT 2194
#define IDC_NODE_TYPE 2195
#define IDC_PEER_MAX 2196
#define IDC_ULTRA_PEER_MAX 2197
#define IDC_ULTRA_PEER_MIN 2198
#define IDC_LEAF_PEER_MAX 2199
#define IDC_PORT_SPIN 2200
#define IDC_UPLOAD_PORT_SPIN 2201
#define IDC_PEER_MAX_SPIN 2202
#define IDC_ULTRA_PEER_MAX_SPIN 2203
#define IDC_ULTRA_PEER_MIN_SPIN 2204
#define IDC_LEAF_PEER_MAX_SPIN 2205
#define IDC_PORTS_GROUP 2210
#define IDC_PORT_LABEL 2211
#define IDC_UPLOAD_PORT_LABEL 2212
#define IDC_ADVANCED_GROUP 2213
#define IDC_NODE_TYPE_LABEL 2214
#define IDC_PEER_MAX_LABEL 2215
#define IDC_ULTRA_PEER_MAX_LABEL 2216
#define IDC_ULTRA_PEER_MIN_LABEL 2217
#define IDC_LEAF_PEER_MAX_LABEL 2218

// The hosts view's context menu and commands.
#define IDR_HOSTS_POPUP 331
#define ID_HOSTS_DISCONNECT 32850
#define ID_HOSTS_BROWSE 32851
#define ID_HOSTS_PROPERTIES 32852
#define ID_HOSTS_ADD_NODE 32854

// A node's fields, shown by the hosts view's Properties command.
#define IDD_HOST_PROPERTIES 3320
#define IDC_HOST_FIELDS 3321

// "Add node...": the address of a node to connect to. Its texts are translated as dialog 337,
// the address dialog it mirrors (the browse-host dialog keeps a history this one has no use for).
#define IDD_ADD_NODE 3370
#define IDC_ADD_NODE_PROMPT 3371
#define IDC_ADD_NODE_IP_LABEL 3372
#define IDC_ADD_NODE_IP 3373
#define IDC_ADD_NODE_PORT_LABEL 3374
#define IDC_ADD_NODE_PORT 208
