// Which of several pages of the browser may begin an update. Their transactions of IndexedDB run one after the other, also
// without HTTPS, where browsers have no locks.

// By then every page knows of the update that has begun.
const LONG_MS = 30000;

const opened = () => new Promise((resolve, reject) => {
  const opening = indexedDB.open("console-claims", 1);
  opening.onupgradeneeded = () => opening.result.createObjectStore("claims");
  opening.onsuccess = () => resolve(opening.result);
  opening.onerror = () => reject(opening.error);
});

// Claims the place of the update `former`, which has ended. Resolves to false if another page has claimed it just before.
// Where the browser keeps nothing, no page knows of another.
export async function claim(id, former) {
  const database = await opened().catch(() => null);
  if (database === null) return true;
  const transaction = database.transaction("claims", "readwrite");
  const claims = transaction.objectStore("claims");
  let isFree = true;
  claims.get("update").onsuccess = ({ target: { result } }) => {
    isFree = result === undefined || result.id === former || Date.now() - result.at > LONG_MS;
    if (isFree) claims.put({ id, at: Date.now() }, "update");
  };
  return new Promise((resolve) => {
    const end = () => {
      database.close();
      resolve(isFree);
    };
    Object.assign(transaction, { oncomplete: end, onabort: end });
  });
}
