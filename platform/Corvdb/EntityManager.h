#pragma once

#include "platform/Corvdb/StateStore.h"
#include "platform/Kiv/TaskScheduler.h"
#include "platform/Zorch/Mounts.h"

#include <functional>

namespace Corvdb {

class EntityManager;

enum class MountStatus { success, badMode, unknownType, otherType };
inline constexpr MountStatus mountSuccess_ = MountStatus::success;

/// One mount of an agent; once made, its path is canonical. Modes: "r" read, "w" write; a trailing
/// "i" is passed on as it is.
struct MountPoint {
   std::string path;
   std::string typeName;
   std::string mode;
};

/// The mounts that an agent asks for together.
class MountGroup : public Lum::Entity {
   LUM_ENTITY( Corvdb, MountGroup );
   using Completion = std::function< void( MountStatus, const Lum::Ptr< EntityManager > & ) >;

   MountGroup( EntityManager & manager, const Lum::Ptr< Kiv::TaskScheduler > & scheduler );

   void mountIs( const std::string & path, const std::string & typeName, const std::string & mode );
   /// Nothing more is asked for. All mounts are made, and the completion is called, in a later
   /// turn of the loop; an entity that nobody has written yet is there with its defaults. The
   /// mounts before one that fails stand, those after it are not made. REQUIRES: not closed before.
   void closeIs( Completion completion );
   /// Why the group failed, for people: the path and what is wrong there. Empty if it did not.
   const std::string & error() const noexcept { return error_; }

 private:
   MountStatus mountAll();
   MountStatus mount( const MountPoint & mount );

   EntityManager & manager_;
   std::vector< MountPoint > asked_;
   bool closed_ = false;
   std::string error_;
   Completion completion_;
   Kiv::Task completionTask_;
};

/// What one agent sees of the state database: what it has mounted, and its local entities. State
/// outlives the manager.
class EntityManager : public Lum::Entity {
   LUM_ENTITY( Corvdb, EntityManager );
   /// The stores outlive the manager.
   EntityManager( StateStore & state, Zorch::TableStore & tables,
                  Lum::Ptr< Kiv::TaskScheduler > scheduler );

   /// The one mount group of the agent.
   const Lum::Ptr< MountGroup > & mountGroup( const std::string & agentName );

   /// A local entity, or the entity at or below a mounted path; null for everything else.
   Lum::Ptr< Lum::Entity > entity( std::string_view path ) const;
   /// As above; null as well when the entity is of another type.
   template< class T >
   Lum::Ptr< T > entity( std::string_view path ) const {
      return Lum::cast< T >( entity( path ) );
   }

   /// The local entity at the path, made where there was none: the agent has it without a mount,
   /// and the platform of this machine fills it. REQUIRES: local entity creation is not declared
   /// finished; the type is known, and nothing of another type is at the path.
   Lum::Ptr< Lum::Entity > localEntityIs( const std::string & path, const std::string & typeName,
                                          const std::string & entityName );
   void localEntitiesCreatedIs( bool created ) { localEntitiesCreated_ = created; }

   /// The tables that the agent has mounted; these mounts end with the manager.
   Zorch::Mounts & tableMounts() noexcept { return tableMounts_; }

 private:
   friend class MountGroup;

   StateStore & state_;
   Zorch::Mounts tableMounts_;
   Lum::Ptr< Kiv::TaskScheduler > scheduler_;
   Lum::Ptr< MountGroup > mountGroup_;
   std::vector< MountPoint > mounts_;
   std::map< std::string, Lum::Ptr< Lum::Entity > > local_;
   bool localEntitiesCreated_ = false;
};

}
