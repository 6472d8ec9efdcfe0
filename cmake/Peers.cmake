# Peer libraries from Debian packages: test oracles and benchmark peers.
# Each found peer becomes an imported target peer::<name> and defines
# NUXZO_HAVE_<NAME>; NUXZO_MISSING_PEERS lists the packages not found.
set(NUXZO_PEER_TARGETS "")
set(NUXZO_MISSING_PEERS "")
set(NUXZO_PEER_DEFINITIONS "")

function(nuxzo_peer name lib header package)
  find_library(NUXZO_PEER_LIB_${name} NAMES ${lib})
  find_path(NUXZO_PEER_INC_${name} NAMES ${header})
  string(TOUPPER ${name} upper)
  if(NUXZO_PEER_LIB_${name} AND NUXZO_PEER_INC_${name})
    add_library(peer::${name} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(peer::${name} PROPERTIES IMPORTED_LOCATION ${NUXZO_PEER_LIB_${name}}
                          INTERFACE_INCLUDE_DIRECTORIES ${NUXZO_PEER_INC_${name}}
                          INTERFACE_COMPILE_DEFINITIONS NUXZO_HAVE_${upper})
    set(NUXZO_PEER_TARGETS ${NUXZO_PEER_TARGETS} peer::${name} PARENT_SCOPE)
    set(NUXZO_PEER_DEFINITIONS ${NUXZO_PEER_DEFINITIONS} NUXZO_HAVE_${upper} PARENT_SCOPE)
  else()
    set(NUXZO_MISSING_PEERS ${NUXZO_MISSING_PEERS} ${package} PARENT_SCOPE)
  endif()
endfunction()

nuxzo_peer(zlib z zlib.h zlib1g-dev)
nuxzo_peer(deflate deflate libdeflate.h libdeflate-dev)
nuxzo_peer(isal isal isa-l.h libisal-dev)
nuxzo_peer(lz4 lz4 lz4.h liblz4-dev)
nuxzo_peer(xxhash xxhash xxhash.h libxxhash-dev)
nuxzo_peer(lzo lzo2 lzo/lzo1x.h liblzo2-dev)
nuxzo_peer(bz2 bz2 bzlib.h libbz2-dev)
nuxzo_peer(zfp zfp zfp.h libzfp-dev)

if(NUXZO_MISSING_PEERS)
  string(REPLACE ";" " " missing "${NUXZO_MISSING_PEERS}")
  message(STATUS "nuxzo: peer libraries missing (benchmark rows and interop tests skipped): ${missing}")
endif()
