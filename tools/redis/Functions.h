#pragma once

namespace Redis {

/// The library of functions that the server runs for the writers of state: `FUNCTION LOAD`.
///
///   state_open CANDIDATE: the epoch (the candidate where the database had none) and the revision.
///
///   state_write EPOCH WRITER FENCE {KEY TYPE CHANGES}...: one turn's changes, whole or not at all,
///   each text as of `PackedChanges`. An empty type ends the key, which may come again behind it.
///   Gives the revision before and after. Errors:
///   "EPOCH ...": this is another database; "OWNED KEY LEASE": another one owns the path;
///   "FENCED KEY": this writer owned it, and another one has come since; "FOREIGN KEY TYPE": no
///   hash stands there.
///
///   state_set KEY {FIELD TEXT}..., state_del KEY FIELD...: the same for people and scripts, on one
///   key. A new key needs its "@type" among the fields; `state_del` without a field ends the key.
///
///   state_claim FENCE MILLISECONDS DEAD HOLDER PREFIX...: takes or renews the leases of the paths
///   at and below the prefixes, all or none; FENCE is "0" at first. A holder with the fence DEAD
///   is passed over. Gives the fence and the revision. Errors: "HELD PREFIX LEASE"; "FENCED
///   PREFIX".
///
///   state_release FENCE PREFIX...: gives back those that are still held with that fence.
///
/// A lease reads "FENCE HOLDER", a holder "CLIENT RUN NAME": id of its connection, of the run of
/// the server, and a name for people.
extern const char * const functionLibrary;

}
