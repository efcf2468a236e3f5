# export_only( TARGET VERSION [SYMBOL...] ): of what the library defines, only what stands in the
# product's own namespaces can be seen from outside, and the symbols that are named; of the standard
# library's templates it keeps its own. VERSION names the symbols' version; empty: they have none.
set( NAMESPACES AgentRunner Corvdb Gemtrace Kiv Kivnet Lum LumZorch Metrics Toggle Trace Velotrace Zorch
     Cspf Interface Ip IsisExportImpl L3 Mpls Routing Schema TrafficEngineering )

function( export_only target version )
   set( patterns ${ARGN} )
   foreach( namespace ${NAMESPACES} )
      string( LENGTH ${namespace} length )
      foreach( within N${length}${namespace} NK${length}${namespace} )
         # Functions and objects, their local ones, tables and names of types, guards, thunks.
         foreach( kind _Z _ZZ _ZT? _ZT?Z _ZGV _ZGVZ _ZTh*_ _ZTv*_ )
            list( APPEND patterns ${kind}${within}* )
         endforeach()
      endforeach()
   endforeach()
   list( JOIN patterns ";\n      " lines )
   set( script ${CMAKE_BINARY_DIR}/${target}.exports )
   file( CONFIGURE OUTPUT ${script} CONTENT "${version} {\n   global:\n      ${lines};\n   local: *;\n};\n" )
   target_link_options( ${target} PRIVATE -Wl,--version-script=${script} )
   set_target_properties( ${target} PROPERTIES LINK_DEPENDS ${script} )
endfunction()
