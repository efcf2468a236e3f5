#pragma once

#include "Cspf/Records/PathRows.h"
#include "platform/Kiv/Walk.h"
#include "schema/TrafficEngineering.h"

namespace Cspf {

/// The keys that one client path maps to.
class LinkedPathInfoKeys : public Lum::Entity {
   LUM_ENTITY( Cspf, LinkedPathInfoKeys );
   explicit LinkedPathInfoKeys( const PathInfoKey & parent ) : parentPathInfoKey_( parent ) {}
   LUM_COLLECTION_ORDERED( childPathInfoKey, std::uint32_t, PathInfoKey );  ///< by path segment

   /// The client's path itself.
   const PathInfoKey & parentPathInfoKey() const noexcept { return parentPathInfoKey_; }
   /// Whether the key is that of a child.
   bool hasChildPathInfoKey( const PathInfoKey & key ) const;
   /// Same parent, and the same children at the same indexes.
   bool isSame( const LinkedPathInfoKeys & other ) const;

 private:
   const PathInfoKey parentPathInfoKey_;
};

/// Follows the path requests of one client in one VRF and family: the rows of each path exist while
/// its request does. The requests that are there at the start are taken in by slices; one that
/// changes meanwhile is handled at once, and not a second time when its turn comes.
///
///   watches              handler            writes
///   Config.pathConfig    handleCspfConfig   rows of the path, Status.pathStatus (removes)
///   Status.pathStatus    handlePathUsage    PathConfigInfo.usageChangeCount
class PathSmBase : public Lum::Reactor {
 public:
   /// `teStatus` may be null. So may `taskScheduler`: all requests are taken in at once.
   PathSmBase( Kivnet::AddressFamily af, const L3::VrfName & vrfName, const Lum::String & name,
               const Lum::Ptr< const TrafficEngineering::Status > & teStatus,
               const Lum::Ptr< const Config > & cspfConfig, const Lum::Ptr< Status > & cspfStatus,
               const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable,
               const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable,
               const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler = nullptr );

   void handleInitialized() override;
   /// Removes the rows of all the client's paths. What is published stays.
   void doPrepareToDie() override;
   /// All requests that were there at the start are in, and nothing has been computed.
   virtual void handleTakenIn() {}
   /// Follows no request any more. Whoever ends the service slice by slice removes its paths; one
   /// whose request changes meanwhile is removed at once.
   virtual void leave();

   /// The request for one path was added, changed or removed.
   virtual void handleCspfConfig( const PathKey & pathKey ) = 0;
   /// The agent's key of a client path. REQUIRES: of a path without request, that it is tracked.
   virtual PathInfoKey externalPathInfoKey( const PathKey & pathKey ) const = 0;
   /// Removes all keys of a client path.
   virtual void doCleanupPathInfoKeyEntries( const PathKey & pathKey ) = 0;
   /// Whether there are keys of a client path; and of which there are, in no order.
   virtual bool isFollowed( const PathKey & pathKey ) const = 0;
   virtual std::vector< PathKey > followedPaths() const = 0;

   /// The path's bandwidth use must be accounted anew.
   void handlePathUsage( const PathKey & pathKey ) { doCheckPathUsageAndUpdate( pathKey ); }
   void doCheckPathUsageAndUpdate( const PathKey & pathKey );
   /// Removes what an earlier run of the agent has published for requests that are gone.
   void doCleanupStalePathEntries();

   /// Makes the rows of a key where there are none, and counts a change of its configuration.
   void addOrUpdatePathInfoKey( const PathInfoKey & key ) {
      addOrUpdatePathInfoKey( key, cspfConfig_ );
   }
   /// ... whose request stands in `config`.
   void addOrUpdatePathInfoKey( const PathInfoKey & key, const Lum::Ptr< const Config > & config );
   /// Removes the rows of a key and, of a client's own path, what is published.
   void deletePathInfoKey( const PathInfoKey & key );

   const Lum::SharedString & name() const noexcept { return name_; }
   const L3::VrfName & vrfName() const noexcept { return vrfName_; }
   Kivnet::AddressFamily af() const noexcept { return af_; }
   const Lum::Ptr< const Config > & cspfConfig() const noexcept { return cspfConfig_; }
   const Lum::Ptr< Status > & cspfStatus() const noexcept { return cspfStatus_; }
   const Lum::Ptr< const TrafficEngineering::Status > & teStatus() const { return teStatus_; }
   const Lum::Ptr< PathConfigInfoTable > & pathConfigInfoTable() const {
      return pathConfigInfoTable_;
   }
   const Lum::Ptr< PathStatusInfoTable > & pathStatusInfoTable() const {
      return pathStatusInfoTable_;
   }
   bool initialized() const noexcept { return initialized_; }
   void dumpState( Kiv::DumpContext & context, int indent ) const;

 protected:
   /// Makes the rows of a key where there are none.
   void addRows( const PathInfoKey & key, const Lum::Ptr< const Config > & config );
   void deleteRows( const PathInfoKey & key );
   /// Takes out what is published for a path that is not followed.
   void deleteStaleEntry( const PathKey & pathKey );

   /// The handling of one path's request. Who reads what it leads to may change the request again,
   /// or end the service, inside of it; that is then handled first, and this handling is void.
   class Handling {
    public:
      Handling( PathSmBase & owner, const PathKey & pathKey );
      ~Handling() { owner_.handling_ = outer_; }
      Handling( const Handling & ) = delete;
      Handling & operator=( const Handling & ) = delete;
      bool isVoid() const { return isOvertaken_ || owner_.isLeaving_ || owner_.isRetired(); }
      bool isOvertaken() const { return isOvertaken_; }  ///< by another one of the same path

    private:
      PathSmBase & owner_;
      Handling * const outer_;
      const PathKey pathKey_;
      bool isOvertaken_ = false;
   };

 private:
   void dumpPathConfig( const PathConfig & config, Kiv::DumpContext & context, int indent ) const;
   void dumpPathStatus( const PathStatus & status, Kiv::DumpContext & context, int indent ) const;
   void removeRows( const PathInfoKey & key );
   std::size_t takeIn( const PathKey & pathKey );
   void stopIntake();
   void handleImports();
   void endIntake();
   std::vector< PathKey > staleEntries() const;

   const Kivnet::AddressFamily af_;
   bool initialized_ = false;
   bool isTakingIn_ = false;
   bool isLeaving_ = false;
   const L3::VrfName vrfName_;
   const Lum::SharedString name_;
   const Lum::Ptr< const TrafficEngineering::Status > teStatus_;
   const Lum::Ptr< const Config > cspfConfig_;
   const Lum::Ptr< Status > cspfStatus_;
   const Lum::Ptr< PathConfigInfoTable > pathConfigInfoTable_;
   const Lum::Ptr< PathStatusInfoTable > pathStatusInfoTable_;
   Kiv::Walk< PathKey > intake_;
   Handling * handling_ = nullptr;  // the innermost
};

/// Ordinary paths. A path without explicit hops is one key with the modifier `noChange`. A path
/// with explicit hops is a parent key with the modifier `noSpf`, and a child key for each
/// segment that is computed on its own.
class PathSm : public PathSmBase {
   LUM_ENTITY( Cspf, PathSm );
   using PathSmBase::PathSmBase;

   void doPrepareToDie() override;
   void handleCspfConfig( const PathKey & pathKey ) override;
   PathInfoKey externalPathInfoKey( const PathKey & pathKey ) const override;
   void doCleanupPathInfoKeyEntries( const PathKey & pathKey ) override;
   bool isFollowed( const PathKey & pathKey ) const override {
      return currentExternalPathInfoKeyHas( pathKey );
   }
   std::vector< PathKey > followedPaths() const override {
      return Lum::keysOf( currentExternalPathInfoKeyColl() );
   }
   /// Removes the keys of the path's segments.
   void doCleanupChildPathInfoKeyEntries( const PathKey & pathKey );

   /// The key under which each of the client's own paths is tracked.
   LUM_COLLECTION( currentExternalPathInfoKey, PathKey, PathInfoKey );

   /// The keys that the client's request needs. REQUIRES: there is a request.
   Lum::Ptr< LinkedPathInfoKeys > getLinkedPathsFromCspfConfig( const PathKey & pathKey ) const;
   /// The keys that are held for the path; the parent is empty where there are none.
   Lum::Ptr< LinkedPathInfoKeys > getLinkedPathsFromPathConfigInfo( const PathKey & pathKey ) const;

   void addOrUpdateChildPathInfoKey( const PathInfoKey & parentPathInfoKey,
                                     std::uint8_t pathSegmentIndex,
                                     const PathInfoKey & childPathInfoKey );
   void deleteChildPathInfoKey( const PathInfoKey & parentPathInfoKey,
                                std::uint8_t pathSegmentIndex,
                                const PathInfoKey & childPathInfoKey );
   void linkPathInfoKeys( const PathInfoKey & parentPathInfoKey, std::uint8_t pathSegmentIndex,
                          const PathInfoKey & childPathInfoKey );
   void unlinkPathInfoKeys( const PathInfoKey & parentPathInfoKey, std::uint8_t pathSegmentIndex,
                            const PathInfoKey & childPathInfoKey );

 private:
   void deleteChildren( const LinkedPathInfoKeys & held );
   void replaceParent( const PathKey & pathKey, const PathInfoKey & wanted );
   void doDeleteUnwanted( const LinkedPathInfoKeys & held, const LinkedPathInfoKeys & wanted,
                          const Handling & handling );
};

}
